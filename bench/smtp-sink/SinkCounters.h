// Totals that every connection of the sink adds to, read by the statistics
// command and at shutdown.
#ifndef SMTP_SINK_SINKCOUNTERS_H
#define SMTP_SINK_SINKCOUNTERS_H

#include <atomic>
#include <cstdint>
#include <string>

namespace sink {

struct SinkCounters
{
    std::atomic<std::uint64_t> connections{0};
    // Connections that completed at least one message: a sender that reuses
    // one connection for every message adds exactly one here.
    std::atomic<std::uint64_t> mailConnections{0};
    std::atomic<std::uint64_t> messages{0};
    // Bytes between the DATA go-ahead and the end-of-data line, as received.
    std::atomic<std::uint64_t> bytes{0};
    std::atomic<std::uint64_t> commands{0};

    /// One line of "name=value" pairs, with the process's CPU time so far.
    std::string summary() const;
};

/// User plus system CPU time of the whole process, in milliseconds.
std::uint64_t processCpuMs();

} // namespace sink

#endif
