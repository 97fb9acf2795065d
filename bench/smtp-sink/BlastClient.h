// A bare SMTP client that sends one prepared message over and over with the
// same command sequence as the library (no pipelining: every command waits
// for its reply). It shows how fast the sink and the loopback can go.
#ifndef SMTP_SINK_BLASTCLIENT_H
#define SMTP_SINK_BLASTCLIENT_H

#include <string>

namespace sink {

struct BlastResult
{
    bool ok = false;
    long long messages = 0;
    double seconds = 0;
    std::string error;
};

/// Sends count copies of message (wire bytes, ending in CR LF) to
/// 127.0.0.1:port over connections connections at once, the copies spread
/// as evenly as possible. Every socket wait is bounded by timeoutSeconds.
BlastResult blast(int port, const std::string& message, long long count, int connections,
                  int timeoutSeconds);

} // namespace sink

#endif
