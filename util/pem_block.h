// SPDX-License-Identifier: Apache-2.0
// Tells whether input holds a PEM block, of any kind and in any state.
#ifndef TARNUTIL_UTIL_PEM_BLOCK_H
#define TARNUTIL_UTIL_PEM_BLOCK_H

#include <openssl/bio.h>

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace tarnutil {

// Reads `bio` up to the first start line of a PEM block, or to its end. The start line counts
// wherever it stands: what follows a DER object does not begin on a line of its own.
inline bool holdsPemBlock(BIO* bio) {
    static const char mark[] = {'-', '-', '-', '-', '-', 'B', 'E', 'G', 'I', 'N', ' '};
    constexpr std::size_t overlap = sizeof mark - 1;  // a mark may be cut by the end of a read

    char window[4096];
    char* end = window;
    for (;;) {
        const int count = BIO_read(bio, end, static_cast<int>(std::end(window) - end));
        if (count <= 0) return false;
        end += count;
        if (std::search(window, end, std::begin(mark), std::end(mark)) != end) return true;
        char* const tail = end - std::min(overlap, static_cast<std::size_t>(end - window));
        end = std::copy(tail, end, window);
    }
}

}  // namespace tarnutil
#endif  // TARNUTIL_UTIL_PEM_BLOCK_H
