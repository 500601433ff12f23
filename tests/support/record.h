// SPDX-License-Identifier: Apache-2.0
// A record of every message that the library gave while a test program ran: the proof that each row
// of docs/messages.md is provoked by some test.
//
// A program records if the environment variable TARNUTIL_TEST_RECORD names a file. Each line of it
// is a class and a text, with a tab between them. What the library throws is recorded by itself,
// also in children and where the library drops it; what a test throws is not.
#ifndef TARNUTIL_TESTS_SUPPORT_RECORD_H
#define TARNUTIL_TESTS_SUPPORT_RECORD_H

#include <string>

namespace tarnutil_test {

// Empties the file, for a program to begin with.
void startRecord();

// Records a text that the library gave in another way than by throwing it.
void record(const char* kind, const std::string& text);

}  // namespace tarnutil_test
#endif  // TARNUTIL_TESTS_SUPPORT_RECORD_H
