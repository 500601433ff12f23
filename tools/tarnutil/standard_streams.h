// SPDX-License-Identifier: Apache-2.0
// The descriptors 0 to 2, which a command may be started without.
#ifndef TARNUTIL_TOOLS_STANDARD_STREAMS_H
#define TARNUTIL_TOOLS_STANDARD_STREAMS_H

namespace tarnutil_command {

// Opens those that are not open, so that no descriptor made later takes such a number. From them
// the end is read at once; writing to them fails, as it would have.
void openStandardStreams();

}  // namespace tarnutil_command
#endif  // TARNUTIL_TOOLS_STANDARD_STREAMS_H
