// smtp_sink: a minimal SMTP server on the loopback address for measuring
// senders, and a bare client that shows how fast the sink itself can go.
//
//   smtp_sink [--port P] [--capture FILE] [--idle-timeout S] [--lifetime S]
//       Listens on 127.0.0.1 (port 0: any free port), prints "port N" on
//       standard output, answers every command at once and counts messages,
//       bytes and connections. "XSTATS" on a connection returns the counts;
//       SIGTERM or SIGINT (or the end of the lifetime) prints them and ends
//       the sink. --capture writes the data of the first message to FILE;
//       "XCAPTURE FILE" does the same for the next message.
//   smtp_sink --blast PORT --message FILE --count N [--connections C]
//       Sends N copies of FILE (wire bytes) to the sink over C connections
//       and prints "blast: N messages in S s, R messages/s".
//   smtp_sink --self-test
//       Checks the protocol handling without a network; exit status 1 when
//       a case fails.
#include "BlastClient.h"
#include "SinkSelfTest.h"
#include "SinkServer.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include <pthread.h>

namespace {

struct Options
{
    int port = 0;
    std::string capture;
    int idleSeconds = 120;
    int lifetimeSeconds = 3600;
    int blastPort = 0;
    std::string messageFile;
    long long count = 0;
    int connections = 1;
};

int usage(const char* error)
{
    std::fprintf(stderr,
                 "smtp_sink: %s\n"
                 "usage: smtp_sink [--port P] [--capture FILE] [--idle-timeout S] [--lifetime S]\n"
                 "       smtp_sink --blast PORT --message FILE --count N [--connections C]\n"
                 "       smtp_sink --self-test\n",
                 error);
    return 2;
}

bool number(const char* text, long long minimum, long long maximum, long long* value)
{
    char* end = nullptr;
    errno = 0;
    const long long n = std::strtoll(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || n < minimum || n > maximum)
        return false;
    *value = n;
    return true;
}

// Fills options; returns an error text, or nullptr.
const char* parse(int argc, char** argv, Options* o)
{
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (i + 1 >= argc)
            return "every option takes a value";
        const char* value = argv[++i];
        long long n = 0;
        if (arg == "--port" && number(value, 0, 65535, &n))
            o->port = int(n);
        else if (arg == "--capture")
            o->capture = value;
        else if (arg == "--idle-timeout" && number(value, 1, 86400, &n))
            o->idleSeconds = int(n);
        else if (arg == "--lifetime" && number(value, 1, 86400, &n))
            o->lifetimeSeconds = int(n);
        else if (arg == "--blast" && number(value, 1, 65535, &n))
            o->blastPort = int(n);
        else if (arg == "--message")
            o->messageFile = value;
        else if (arg == "--count" && number(value, 1, 1000000000, &n))
            o->count = n;
        else if (arg == "--connections" && number(value, 1, 1000, &n))
            o->connections = int(n);
        else
            return "unknown option or bad value";
    }
    return nullptr;
}

int runBlast(const Options& o)
{
    std::ifstream file(o.messageFile, std::ios::binary);
    if (!file || o.count < 1)
        return usage("--blast needs a readable --message file and --count");
    std::ostringstream bytes;
    bytes << file.rdbuf();
    const sink::BlastResult result = sink::blast(o.blastPort, bytes.str(), o.count, o.connections, 60);
    if (!result.ok) {
        std::fprintf(stderr, "smtp_sink: blast failed: %s\n", result.error.c_str());
        return 1;
    }
    std::printf("blast: %lld messages in %.3f s, %.1f messages/s\n", result.messages, result.seconds,
                result.seconds > 0 ? double(result.messages) / result.seconds : 0.0);
    return 0;
}

int runSink(const Options& o)
{
    // Only the main thread takes the stop signals; every thread started
    // from here on inherits the blocked mask.
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    static sink::SinkServer server(o.capture, o.idleSeconds);
    if (!server.listen(o.port))
        return 1;
    std::printf("port %d\n", server.port());
    std::fflush(stdout);

    std::thread([] {
        server.serve();
        std::fprintf(stderr, "smtp_sink: stopped accepting\n");
        std::_Exit(1);
    }).detach();

    timespec lifetime{};
    lifetime.tv_sec = o.lifetimeSeconds;
    const int signal = sigtimedwait(&stop, nullptr, &lifetime);
    std::fprintf(stderr, "smtp_sink: %s: %s\n", signal > 0 ? "stopped" : "lifetime over",
                 server.counters().summary().c_str());
    std::fflush(stderr);
    // Sessions may still be running on detached threads: leave without
    // running destructors under them.
    std::_Exit(0);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::strcmp(argv[1], "--self-test") == 0)
        return sink::runSelfTest() == 0 ? 0 : 1;
    Options options;
    if (const char* error = parse(argc, argv, &options))
        return usage(error);
    return options.blastPort ? runBlast(options) : runSink(options);
}
