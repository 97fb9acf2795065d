// The sink's listening socket on the loopback address, serving every
// connection on a thread of its own.
#ifndef SMTP_SINK_SINKSERVER_H
#define SMTP_SINK_SINKSERVER_H

#include "SinkCounters.h"
#include "SinkSession.h"

#include <string>

namespace sink {

class SinkServer
{
public:
    /// idleSeconds bounds every wait for a client's next bytes.
    SinkServer(std::string capturePath, int idleSeconds);
    ~SinkServer();

    /// Binds 127.0.0.1:port (0: any free port) and listens. False with a
    /// message on stderr on failure.
    bool listen(int port);
    int port() const { return boundPort; }

    /// Accepts connections until the process ends; returns only on an error
    /// of the listening socket.
    void serve();

    const SinkCounters& counters() const { return totals; }

private:
    SinkCounters totals;
    MessageCapture capture;
    int idleSeconds;
    int listener = -1;
    int boundPort = 0;
};

} // namespace sink

#endif
