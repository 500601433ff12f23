// SPDX-License-Identifier: Apache-2.0
// Names threads in a start-up callback, so that debuggers and process lists tell them apart.
//
// The callback runs on the new thread before its work, so it can name the thread it is on.
#include <pthread.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

#include <tarnutil/Thread.h>

using tarnutil::Runnable;
using tarnutil::Thread;

namespace {

// Finds out what its thread is called.
class AskName : public Runnable {
public:
    void run() override {
        char name[16] = "";  // as long as names can be
        if (pthread_getname_np(pthread_self(), name, sizeof name) == 0) answer = name;
    }

    std::string answer;
};

// `name` is a text of at most 15 bytes that outlives the start of the thread.
void nameThread(void* name) {
    (void)pthread_setname_np(pthread_self(), static_cast<const char*>(name));
}

std::string nameOfThreadCalled(char* name) {
    Thread thread(std::make_unique<AskName>(), /*startDetached=*/false);
    thread.setStartupHandler(nameThread, name);
    thread.start();
    const std::unique_ptr<Runnable> back(thread.join());
    return static_cast<const AskName&>(*back).answer;
}

}  // namespace

int main() {
    char reader[] = "log-reader";
    char writer[] = "log-writer";
    const std::string first = nameOfThreadCalled(reader);
    const std::string second = nameOfThreadCalled(writer);
    std::cout << first << "\n" << second << "\n";
    return first == reader && second == writer ? EXIT_SUCCESS : EXIT_FAILURE;
}
