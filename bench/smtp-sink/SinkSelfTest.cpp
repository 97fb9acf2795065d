#include "SinkSelfTest.h"

#include "SinkSession.h"

#include <cstdio>
#include <string>
#include <vector>

namespace sink {

namespace {

struct Case
{
    const char* name;
    // Bytes as they arrive, one read each; a read may end anywhere.
    std::vector<std::string> reads;
    std::string replies;
    unsigned long long messages;
    unsigned long long bytes;
    bool quit;
};

const std::string kOk = "250 2.0.0 OK\r\n";
const std::string kGoAhead = "354 end data with <CR><LF>.<CR><LF>\r\n";
const std::string kQueued = "250 2.0.0 OK queued\r\n";
const std::string kEnvelope = "MAIL FROM:<a@example.org>\r\nRCPT TO:<b@example.org>\r\nDATA\r\n";

const std::vector<Case>& cases()
{
    static const std::vector<Case> all = {
        {"one message in one read", {kEnvelope + "Subject: x\r\n\r\nbody\r\n.\r\n"},
         kOk + kOk + kGoAhead + kQueued, 1, 20, false},
        {"end-of-data line split after the dot", {kEnvelope + "body\r\n.", "\r\n"},
         kOk + kOk + kGoAhead + kQueued, 1, 6, false},
        {"end-of-data line split inside its line end", {kEnvelope + "body\r\n.\r", "\n"},
         kOk + kOk + kGoAhead + kQueued, 1, 6, false},
        {"line end split before the dot", {kEnvelope + "body\r", "\n.\r\n"},
         kOk + kOk + kGoAhead + kQueued, 1, 6, false},
        {"dot-stuffed line is data", {kEnvelope + "..x\r\n.y\r\n.\r\n"},
         kOk + kOk + kGoAhead + kQueued, 1, 9, false},
        {"dot not at a line start is data", {kEnvelope + "a.\r\nb.\r\n.\r\n"},
         kOk + kOk + kGoAhead + kQueued, 1, 8, false},
        {"empty message", {kEnvelope + ".\r\n"}, kOk + kOk + kGoAhead + kQueued, 1, 0, false},
        {"bare line feeds end the data too", {kEnvelope + "x\n.\n"},
         kOk + kOk + kGoAhead + kQueued, 1, 2, false},
        {"long line over many reads", {kEnvelope + std::string(5000, 'A'), std::string(7000, 'B'), "\r\n.\r\n"},
         kOk + kOk + kGoAhead + kQueued, 1, 12002, false},
        {"two messages, commands pipelined after the data",
         {kEnvelope + "one\r\n.\r\n" + kEnvelope + "two!\r\n.\r\nQUIT\r\n"},
         kOk + kOk + kGoAhead + kQueued + kOk + kOk + kGoAhead + kQueued + "221 2.0.0 bye\r\n", 2, 11, true},
        {"command split over reads", {"MAIL FR", "OM:<a@example.org>\r", "\nNOOP\r\nRSET\r\n"},
         kOk + kOk + kOk, 0, 0, false},
        {"EHLO lists the mechanisms on a continuation line", {"ehlo client\r\n"},
         "250-sink.localhost\r\n250-AUTH LOGIN PLAIN\r\n250-8BITMIME\r\n250 HELP\r\n", 0, 0, false},
        {"AUTH LOGIN in three steps", {"AUTH LOGIN\r\nam9l\r\ncHc=\r\n"},
         "334 VXNlcm5hbWU6\r\n334 UGFzc3dvcmQ6\r\n235 2.7.0 accepted\r\n", 0, 0, false},
        {"AUTH LOGIN with the user name on the command", {"AUTH LOGIN am9l\r\ncHc=\r\n"},
         "334 UGFzc3dvcmQ6\r\n235 2.7.0 accepted\r\n", 0, 0, false},
        {"AUTH PLAIN with and without initial response", {"AUTH PLAIN am9lOnB3\r\nAUTH PLAIN\r\nAGpvZQBwdw==\r\n"},
         "235 2.7.0 accepted\r\n334 \r\n235 2.7.0 accepted\r\n", 0, 0, false},
        {"unknown mechanism and command", {"AUTH CRAM-MD5\r\nVRFY x\r\n"},
         "504 5.5.4 mechanism not supported\r\n502 5.5.1 not implemented\r\n", 0, 0, false},
        {"QUIT ends the reading", {"QUIT\r\nNOOP\r\n"}, "221 2.0.0 bye\r\n", 0, 0, true},
    };
    return all;
}

} // namespace

int runSelfTest()
{
    int failures = 0;
    for (const Case& c : cases()) {
        SinkCounters counters;
        MessageCapture capture{std::string()};
        SinkSession session(-1, counters, capture);
        std::string pending;
        std::string replies;
        for (const std::string& read : c.reads) {
            pending += read;
            std::string out;
            const std::size_t used = session.feed(pending.data(), pending.size(), out);
            pending.erase(0, used);
            replies += out;
        }
        const bool ok = replies == c.replies && counters.messages == c.messages && counters.bytes == c.bytes
            && session.closing() == c.quit;
        if (!ok) {
            ++failures;
            std::fprintf(stderr,
                         "smtp_sink self-test \"%s\" failed: messages %llu (want %llu), bytes %llu (want "
                         "%llu), quit %d (want %d), replies:\n%s",
                         c.name, (unsigned long long)counters.messages.load(), c.messages,
                         (unsigned long long)counters.bytes.load(), c.bytes, session.closing(), c.quit,
                         replies.c_str());
        }
    }
    if (failures == 0)
        std::printf("smtp_sink self-test: %zu cases passed\n", cases().size());
    return failures;
}

} // namespace sink
