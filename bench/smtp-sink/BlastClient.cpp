#include "BlastClient.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace sink {

namespace {

class Connection
{
public:
    explicit Connection(int timeoutSeconds) : timeoutSeconds(timeoutSeconds) {}
    ~Connection()
    {
        if (fd >= 0)
            ::close(fd);
    }

    bool open(int port)
    {
        fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd < 0)
            return fail("socket");
        timeval timeout{};
        timeout.tv_sec = timeoutSeconds;
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
        const int on = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(std::uint16_t(port));
        if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
            return fail("connect");
        return expect(220);
    }

    // Writes bytes and reads one reply (all its lines), which must carry code.
    bool exchange(const char* bytes, std::size_t size, int code)
    {
        return write(bytes, size) && expect(code);
    }

    bool write(const char* bytes, std::size_t size)
    {
        while (size > 0) {
            const ssize_t n = ::send(fd, bytes, size, MSG_NOSIGNAL);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                return fail("send");
            bytes += n;
            size -= std::size_t(n);
        }
        return true;
    }

    std::string error;

private:
    // Reads lines until the last line of a reply ("NNN " or "NNN\r\n").
    bool expect(int code)
    {
        for (;;) {
            const std::size_t eol = pending.find('\n');
            if (eol == std::string::npos) {
                char chunk[4096];
                const ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
                if (n < 0 && errno == EINTR)
                    continue;
                if (n <= 0)
                    return fail("recv (closed or timed out)");
                pending.append(chunk, std::size_t(n));
                continue;
            }
            const std::string line = pending.substr(0, eol + 1);
            pending.erase(0, eol + 1);
            if (line.size() >= 4 && line[3] == '-')
                continue;
            if (std::atoi(line.c_str()) != code) {
                error = "expected " + std::to_string(code) + ", got " + line;
                return false;
            }
            return true;
        }
    }

    bool fail(const char* what)
    {
        error = std::string(what) + ": " + std::strerror(errno);
        return false;
    }

    int fd = -1;
    int timeoutSeconds;
    std::string pending;
};

bool sendShare(const std::string& message, long long count, int port, int timeoutSeconds,
          std::string* error)
{
    static const char kEhlo[] = "EHLO blast.localhost\r\n";
    static const char kMail[] = "MAIL FROM:<blast@example.org>\r\n";
    static const char kRcpt[] = "RCPT TO:<sink@example.org>\r\n";
    static const char kData[] = "DATA\r\n";
    static const char kQuit[] = "QUIT\r\n";
    std::string body = message;
    body += ".\r\n";

    Connection connection(timeoutSeconds);
    bool ok = connection.open(port) && connection.exchange(kEhlo, sizeof kEhlo - 1, 250);
    for (long long i = 0; ok && i < count; ++i) {
        ok = connection.exchange(kMail, sizeof kMail - 1, 250)
            && connection.exchange(kRcpt, sizeof kRcpt - 1, 250)
            && connection.exchange(kData, sizeof kData - 1, 354)
            && connection.exchange(body.data(), body.size(), 250);
    }
    ok = ok && connection.write(kQuit, sizeof kQuit - 1);
    if (!ok)
        *error = connection.error;
    return ok;
}

} // namespace

BlastResult blast(int port, const std::string& message, long long count, int connections,
                  int timeoutSeconds)
{
    BlastResult result;
    if (connections < 1)
        connections = 1;
    if (connections > count)
        connections = int(count > 0 ? count : 1);

    std::mutex errorLock;
    std::atomic<bool> ok{true};
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::thread> threads;
    threads.reserve(std::size_t(connections));
    for (int i = 0; i < connections; ++i) {
        const long long share = count / connections + (i < count % connections ? 1 : 0);
        threads.emplace_back([&, share] {
            std::string error;
            if (!sendShare(message, share, port, timeoutSeconds, &error)) {
                ok = false;
                std::lock_guard<std::mutex> guard(errorLock);
                result.error = error;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    result.ok = ok;
    result.messages = ok ? count : 0;
    return result;
}

} // namespace sink
