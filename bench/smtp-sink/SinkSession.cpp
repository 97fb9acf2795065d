#include "SinkSession.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace sink {

namespace {

const std::size_t kBufferSize = 256 * 1024;
// A command line longer than this is refused and dropped.
const std::size_t kMaxLine = 4096;

const char kGreeting[] = "220 sink.localhost ESMTP ready\r\n";
// The client learns features from continuation lines only, so the last line
// carries nothing it needs.
const char kEhloReply[] = "250-sink.localhost\r\n250-AUTH LOGIN PLAIN\r\n250-8BITMIME\r\n250 HELP\r\n";

bool sendAll(int fd, const std::string& bytes)
{
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += std::size_t(n);
    }
    return true;
}

char upper(char c)
{
    return c >= 'a' && c <= 'z' ? char(c - 'a' + 'A') : c;
}

} // namespace

std::string SinkCounters::summary() const
{
    char line[256];
    std::snprintf(line, sizeof line,
                  "messages=%llu bytes=%llu connections=%llu mail-connections=%llu commands=%llu cpu-ms=%llu",
                  (unsigned long long)messages.load(), (unsigned long long)bytes.load(),
                  (unsigned long long)connections.load(), (unsigned long long)mailConnections.load(),
                  (unsigned long long)commands.load(), (unsigned long long)processCpuMs());
    return line;
}

std::uint64_t processCpuMs()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto ms = [](const timeval& t) {
        return std::uint64_t(t.tv_sec) * 1000u + std::uint64_t(t.tv_usec) / 1000u;
    };
    return ms(usage.ru_utime) + ms(usage.ru_stime);
}

MessageCapture::MessageCapture(std::string path) : armedPath(std::move(path)) {}

void MessageCapture::arm(const std::string& path)
{
    std::lock_guard<std::mutex> guard(lock);
    armedPath = path;
}

bool MessageCapture::claim(std::string* path)
{
    std::lock_guard<std::mutex> guard(lock);
    if (armedPath.empty())
        return false;
    path->swap(armedPath);
    armedPath.clear();
    return true;
}

bool MessageCapture::store(const std::string& path, const std::string& bytes)
{
    // Written under a temporary name and renamed, so that a reader never
    // sees a partial file.
    const std::string partial = path + ".part";
    FILE* file = std::fopen(partial.c_str(), "wb");
    bool ok = file && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    if (file && std::fclose(file) != 0)
        ok = false;
    ok = ok && std::rename(partial.c_str(), path.c_str()) == 0;
    if (!ok)
        std::fprintf(stderr, "smtp_sink: cannot write %s: %s\n", path.c_str(), std::strerror(errno));
    return ok;
}

SinkSession::SinkSession(int fd, SinkCounters& counters, MessageCapture& capture)
    : fd(fd), counters(counters), capture(capture)
{
}

void SinkSession::run()
{
    std::string out(kGreeting);
    if (!sendAll(fd, out))
        return;
    std::vector<char> buffer(kBufferSize);
    std::size_t filled = 0;
    while (!quit) {
        const ssize_t n = ::recv(fd, buffer.data() + filled, buffer.size() - filled, 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return;  // closed, failed or timed out
        filled += std::size_t(n);
        out.clear();
        const std::size_t used = feed(buffer.data(), filled, out);
        // Every complete command is answered before the next read.
        if (!out.empty() && !sendAll(fd, out))
            return;
        std::memmove(buffer.data(), buffer.data() + used, filled - used);
        filled -= used;
    }
}

std::size_t SinkSession::feed(const char* data, std::size_t size, std::string& out)
{
    std::size_t pos = 0;
    while (pos < size && !quit) {
        if (state == State::Data) {
            const std::size_t used = consumeData(data + pos, size - pos, out);
            if (used == 0)
                break;  // a possible end-of-data line is incomplete
            pos += used;
            continue;
        }
        const void* found = std::memchr(data + pos, '\n', size - pos);
        if (!found) {
            if (size - pos > kMaxLine) {
                out += "500 5.5.2 line too long\r\n";
                pos = size;
            }
            break;
        }
        const std::size_t end = std::size_t(static_cast<const char*>(found) - data);
        std::size_t length = end - pos;
        if (length > 0 && data[pos + length - 1] == '\r')
            --length;
        handleLine(data + pos, length, out);
        pos = end + 1;
    }
    return pos;
}

void SinkSession::handleLine(const char* line, std::size_t length, std::string& out)
{
    counters.commands.fetch_add(1, std::memory_order_relaxed);
    switch (state) {
    case State::AuthLoginUser:
        out += "334 UGFzc3dvcmQ6\r\n";
        state = State::AuthLoginPassword;
        return;
    case State::AuthLoginPassword:
    case State::AuthPlain:
        out += "235 2.7.0 accepted\r\n";
        state = State::Command;
        return;
    case State::Command:
    case State::Data:
        break;
    }

    std::size_t verbEnd = 0;
    while (verbEnd < length && line[verbEnd] != ' ' && line[verbEnd] != ':')
        ++verbEnd;
    std::string verb;
    verb.reserve(verbEnd);
    for (std::size_t i = 0; i < verbEnd; ++i)
        verb += upper(line[i]);
    std::size_t argStart = verbEnd;
    while (argStart < length && line[argStart] == ' ')
        ++argStart;
    handleCommand(verb, line + argStart, length - argStart, out);
}

void SinkSession::handleCommand(const std::string& verb, const char* argument, std::size_t argLength,
                                std::string& out)
{
    if (verb == "MAIL" || verb == "RCPT" || verb == "RSET" || verb == "NOOP") {
        out += "250 2.0.0 OK\r\n";
    } else if (verb == "DATA") {
        out += "354 end data with <CR><LF>.<CR><LF>\r\n";
        state = State::Data;
        atLineStart = true;
        messageBytes = 0;
        capturing = capture.claim(&capturePath);
        captured.clear();
    } else if (verb == "EHLO") {
        out += kEhloReply;
    } else if (verb == "HELO") {
        out += "250 sink.localhost\r\n";
    } else if (verb == "AUTH") {
        std::string mechanism;
        std::size_t i = 0;
        for (; i < argLength && argument[i] != ' '; ++i)
            mechanism += upper(argument[i]);
        const bool initialResponse = i < argLength;
        if (mechanism == "LOGIN") {
            // With an initial response the user name has come already.
            out += initialResponse ? "334 UGFzc3dvcmQ6\r\n" : "334 VXNlcm5hbWU6\r\n";
            state = initialResponse ? State::AuthLoginPassword : State::AuthLoginUser;
        } else if (mechanism == "PLAIN") {
            if (initialResponse) {
                out += "235 2.7.0 accepted\r\n";
            } else {
                out += "334 \r\n";
                state = State::AuthPlain;
            }
        } else {
            out += "504 5.5.4 mechanism not supported\r\n";
        }
    } else if (verb == "QUIT") {
        out += "221 2.0.0 bye\r\n";
        quit = true;
    } else if (verb == "XSTATS") {
        out += "250 " + counters.summary() + "\r\n";
    } else if (verb == "XCAPTURE" && argLength > 0) {
        capture.arm(std::string(argument, argLength));
        out += "250 2.0.0 the next message will be written\r\n";
    } else {
        out += "502 5.5.1 not implemented\r\n";
    }
}

std::size_t SinkSession::consumeData(const char* data, std::size_t size, std::string& out)
{
    std::size_t pos = 0;
    while (pos < size) {
        if (atLineStart && data[pos] == '.') {
            const std::size_t left = size - pos;
            std::size_t terminator = 0;
            if (left >= 2 && data[pos + 1] == '\n')
                terminator = 2;
            else if (left >= 3 && data[pos + 1] == '\r' && data[pos + 2] == '\n')
                terminator = 3;
            else if (left == 1 || (left == 2 && data[pos + 1] == '\r'))
                break;  // wait for the rest of the line
            if (terminator) {
                if (capturing)
                    captured.append(data, pos);
                messageBytes += pos;
                finishMessage(out);
                return pos + terminator;
            }
        }
        const void* found = std::memchr(data + pos, '\n', size - pos);
        const std::size_t next = found ? std::size_t(static_cast<const char*>(found) - data) + 1 : size;
        atLineStart = found != nullptr;
        pos = next;
    }
    if (capturing)
        captured.append(data, pos);
    messageBytes += pos;
    return pos;
}

void SinkSession::finishMessage(std::string& out)
{
    state = State::Command;
    if (capturing) {
        // Written before the message counts, so that a client that sees the
        // reply also finds the file complete.
        MessageCapture::store(capturePath, captured);
        captured.clear();
        captured.shrink_to_fit();
        capturing = false;
    }
    counters.bytes.fetch_add(messageBytes, std::memory_order_relaxed);
    counters.messages.fetch_add(1, std::memory_order_relaxed);
    if (!deliveredHere) {
        deliveredHere = true;
        counters.mailConnections.fetch_add(1, std::memory_order_relaxed);
    }
    out += "250 2.0.0 OK queued\r\n";
}

} // namespace sink
