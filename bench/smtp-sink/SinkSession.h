// One SMTP connection of the sink: answers every command at once, swallows
// message data up to the end-of-data line and counts what it saw.
#ifndef SMTP_SINK_SINKSESSION_H
#define SMTP_SINK_SINKSESSION_H

#include "SinkCounters.h"

#include <atomic>
#include <cstddef>
#include <mutex>
#include <string>
#include <utility>

namespace sink {

/// Where a received message is written: the first one when a path is given
/// at start, and the next one after each "XCAPTURE path" command.
class MessageCapture
{
public:
    explicit MessageCapture(std::string path);
    /// Arms the capture for the next message that begins.
    void arm(const std::string& path);
    /// True for exactly one message per arming; takes the path to write.
    bool claim(std::string* path);
    /// Writes the bytes; false (with a note on stderr) when writing fails.
    static bool store(const std::string& path, const std::string& bytes);

private:
    std::mutex lock;
    std::string armedPath;
};

class SinkSession
{
public:
    SinkSession(int fd, SinkCounters& counters, MessageCapture& capture);

    /// Serves the connection until QUIT, end of stream, an error or the
    /// socket's receive time-out. Does not close the socket.
    void run();

    /// Feeds received bytes and appends the replies they call for to out.
    /// Returns the number of bytes consumed (a partial line stays for later)
    /// and sets closing when the client has said QUIT. Public so that the
    /// protocol can be driven without a socket.
    std::size_t feed(const char* data, std::size_t size, std::string& out);
    bool closing() const { return quit; }

private:
    enum class State { Command, AuthLoginUser, AuthLoginPassword, AuthPlain, Data };

    void handleLine(const char* line, std::size_t length, std::string& out);
    void handleCommand(const std::string& verb, const char* argument, std::size_t argLength,
                       std::string& out);
    // Consumes message data; returns bytes used, leaves the data state when
    // the end-of-data line has been seen.
    std::size_t consumeData(const char* data, std::size_t size, std::string& out);
    void finishMessage(std::string& out);

    int fd;
    SinkCounters& counters;
    MessageCapture& capture;
    State state = State::Command;
    bool quit = false;
    bool atLineStart = true;
    bool capturing = false;
    bool deliveredHere = false;
    std::uint64_t messageBytes = 0;
    std::string captured;
    std::string capturePath;
};

} // namespace sink

#endif
