// SPDX-License-Identifier: Apache-2.0
// What a command and the program that it runs send each other on one standard stream.
#ifndef TARNUTIL_TOOLS_PASSAGE_H
#define TARNUTIL_TOOLS_PASSAGE_H

#include <poll.h>

#include <string>

#include <tarnutil/Pipe.h>

namespace tarnutil_command {

// Carries bytes between a stream of the command and the pipe to the same stream of the program, one
// piece at a time and never waiting: that is left to a poll for `awaited`.
class Passage {
public:
    // With WRITE, the command's end of the pipe is the sink; with READ, the source.
    Passage(tarnutil::Pipe& programs, tarnutil::Pipe::Type end, int commandStream)
        : pipe(programs), side(end), stream(commandStream) {}

    // What has to happen before `advance` can do something: nothing if the passage is closed.
    pollfd awaited() const;

    // Reads a piece, or writes one that was read. Closes the pipe at the end of the source, and
    // where reading or writing fails.
    void advance();

    // Whether something was read that has not been written.
    bool isLaden() const { return isOpen() && !cargo.empty(); }

    // Whether reading or writing failed. That nobody reads any more is no failure.
    bool hasFailed() const { return failed; }

private:
    bool isOpen() const { return end() != -1; }
    int end() const { return pipe.getDescriptor(side); }
    int source() const { return side == tarnutil::Pipe::READ ? end() : stream; }
    int sink() const { return side == tarnutil::Pipe::READ ? stream : end(); }
    void load();
    void unload();
    void closeUnlessTemporary(int error);

    tarnutil::Pipe& pipe;
    const tarnutil::Pipe::Type side;
    const int stream;
    std::string cargo;
    bool failed = false;
};

}  // namespace tarnutil_command
#endif  // TARNUTIL_TOOLS_PASSAGE_H
