// SPDX-License-Identifier: Apache-2.0
// Learns from Executor which items of a batch ran, and how each of them fared.
//
//   batch_outcomes NUMBER...
//
// Executor says of a batch only that it failed, not where; and what leaves run() ends the process.
// So each item keeps its own outcome, and the caller looks at all of them afterwards.
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <tarnutil/Exception.h>
#include <tarnutil/Executor.h>

using tarnutil::Executor;
using tarnutil::Runnable;

namespace {

// The square root of a number given as text.
class SquareRoot : public Runnable {
public:
    enum Outcome { neverRan, done, failed };

    explicit SquareRoot(const std::string& from) : text(from) {}

    void run() override {
        try {
            const double number = std::stod(text);
            if (number < 0) throw std::domain_error("negative");
            root = std::sqrt(number);
            outcome = done;
        } catch (const std::exception& e) {
            error = e.what();
            outcome = failed;
        }
    }

    std::string text;
    Outcome outcome = neverRan;
    double root = 0;
    std::string error;
};

std::ostream& operator<<(std::ostream& out, const SquareRoot& item) {
    out << item.text << ": ";
    switch (item.outcome) {
        case SquareRoot::neverRan:
            return out << "never ran";
        case SquareRoot::failed:
            return out << "failed: " << item.error;
        case SquareRoot::done:
            break;
    }
    return out << item.root;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<SquareRoot> items(argv + 1, argv + argc);
    std::vector<Runnable*> batch;  // borrowed: the items stay ours
    for (SquareRoot& item : items) batch.push_back(&item);
    try {
        Executor::execute(batch, nullptr, nullptr, nullptr, nullptr);
    } catch (const tarnutil::Exception& e) {
        std::cerr << e.what() << "\n";  // the items that ran have their outcomes all the same
    }
    int left = 0;
    for (const SquareRoot& item : items) {
        std::cout << item << "\n";
        if (item.outcome == SquareRoot::neverRan) ++left;
    }
    return left == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
