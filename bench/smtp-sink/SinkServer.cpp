#include "SinkServer.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace sink {

namespace {

void setTimeouts(int fd, int seconds)
{
    timeval timeout{};
    timeout.tv_sec = seconds;
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
}

} // namespace

SinkServer::SinkServer(std::string capturePath, int idleSeconds)
    : capture(std::move(capturePath)), idleSeconds(idleSeconds)
{
}

SinkServer::~SinkServer()
{
    if (listener >= 0)
        ::close(listener);
}

bool SinkServer::listen(int port)
{
    listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener < 0) {
        std::perror("smtp_sink: socket");
        return false;
    }
    const int on = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(std::uint16_t(port));
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0
        || ::listen(listener, 256) != 0) {
        std::perror("smtp_sink: bind/listen on 127.0.0.1");
        return false;
    }
    socklen_t length = sizeof address;
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    boundPort = ntohs(address.sin_port);
    return true;
}

void SinkServer::serve()
{
    for (;;) {
        const int fd = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED)
                continue;
            if (errno == EMFILE || errno == ENFILE) {
                // Out of descriptors: give running sessions time to end.
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
                continue;
            }
            std::perror("smtp_sink: accept");
            return;
        }
        totals.connections.fetch_add(1, std::memory_order_relaxed);
        // Replies are single small writes answering a request each; do not
        // let them wait for acknowledgements.
        const int on = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        setTimeouts(fd, idleSeconds);
        try {
            std::thread([this, fd] {
                SinkSession session(fd, totals, capture);
                session.run();
                ::close(fd);
            }).detach();
        } catch (const std::system_error& e) {
            std::fprintf(stderr, "smtp_sink: no thread for a connection: %s\n", e.what());
            ::close(fd);
        }
    }
}

} // namespace sink
