// A whole client session against a server whose replies come from the fuzz
// input: reply reading, the command conversation, EHLO extension reading,
// STARTTLS, authentication and message transmission all meet server bytes
// they cannot trust.
//
// Input: a settings byte, then the server's bytes after its greeting. The
// server on 127.0.0.1 greets with "220", waits for the client's EHLO line,
// writes the bytes, closes its sending side and reads whatever the client
// still sends until the client closes. Settings byte: bit 0 the STARTTLS
// flag, bit 1 credentials, bit 2 CRAM-MD5 allowed, bit 3 DSN allowed, bit 4
// LOGIN forbidden, bits 5-6 the number of messages (0 to 3).
//
// With QUILLET_FUZZ_VERBOSE set, each report of sent() and Qt's own warnings
// are printed, which shows how far an input takes the session.

#include "FuzzSupport.h"

#include "smtp/SmtpClient.h"
#include "support/ovkQtThreadPool.h"

#include <QCoreApplication>
#include <QList>
#include <QStringList>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

bool gVerbose = false;
int gListener = -1;
quint16 gPort = 0;

// Longest the server waits for the client at any point, in ms.
const int ServerWaitMs = 5000;
// Longest a session may take; a job still running then is a hang.
const int SessionWaitMs = 20000;

bool waitReadable(int fd, int timeoutMs)
{
    pollfd p{fd, POLLIN, 0};
    return ::poll(&p, 1, timeoutMs) > 0;
}

void writeAll(int fd, const char *bytes, size_t size)
{
    while (size > 0) {
        const ssize_t n = ::send(fd, bytes, size, MSG_NOSIGNAL);
        if (n <= 0)
            return;
        bytes += n;
        size -= size_t(n);
    }
}

// One connection: greeting, the client's EHLO line, the reply bytes, then
// reading until the client closes, so that nothing unread turns the close
// into a reset that could drop bytes the client has not read yet.
void serve(QByteArray reply)
{
    if (!waitReadable(gListener, ServerWaitMs))
        return;
    const int fd = ::accept(gListener, nullptr, nullptr);
    if (fd < 0)
        return;
    const char greeting[] = "220 fuzz.example ESMTP\r\n";
    writeAll(fd, greeting, sizeof(greeting) - 1);

    char buffer[4096];
    bool sawLine = false;
    while (!sawLine && waitReadable(fd, ServerWaitMs)) {
        const ssize_t n = ::recv(fd, buffer, sizeof(buffer), 0);
        if (n <= 0)
            break;
        sawLine = std::memchr(buffer, '\n', size_t(n)) != nullptr;
    }
    writeAll(fd, reply.constData(), size_t(reply.size()));
    ::shutdown(fd, SHUT_WR);
    while (waitReadable(fd, ServerWaitMs) && ::recv(fd, buffer, sizeof(buffer), 0) > 0) {
    }
    ::close(fd);
}

oru::EMail message(int n)
{
    oru::EMail mail;
    mail.from = oru::MailAddress(QStringLiteral("Sender <sender@example.org>"));
    mail.to = QStringLiteral("to%1@example.org, Second <second@example.org>").arg(n);
    mail.cc = QStringLiteral("cc@example.org");
    mail.bcc = QStringLiteral("bcc@example.org;");
    mail.subject = QStringLiteral("Message %1").arg(n);
    mail.setPlainText(QStringLiteral("Line one.\nLine two: caf\u00e9.\n"));
    return mail;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    static QCoreApplication app(*argc, *argv);
    // One pool thread serves every input. Threads that start and expire
    // between inputs make LeakSanitizer's check after an input race with
    // their thread-local state (the library's cached Date text among it).
    oru::ovkQtThreadPool::globalInstance()->setMaxThreadCount(1);
    gVerbose = qEnvironmentVariableIsSet("QUILLET_FUZZ_VERBOSE");
    if (!gVerbose)
        fuzz::quietQtMessages();

    gListener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    socklen_t length = sizeof(address);
    if (gListener < 0 || ::bind(gListener, reinterpret_cast<sockaddr *>(&address), length) != 0
        || ::listen(gListener, 8) != 0
        || ::getsockname(gListener, reinterpret_cast<sockaddr *>(&address), &length) != 0) {
        std::perror("fuzz server");
        std::exit(1);
    }
    gPort = ntohs(address.sin_port);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    const uint8_t settings = input.byte();
    std::thread server(serve, input.rest());

    oru::SmtpAccess access(QStringLiteral("127.0.0.1"), gPort, QString(), QString());
    access.tls = settings & 1;
    oru::SmtpClient client(access);
    if (settings & 2)
        client.setAuthentication(QStringLiteral("user"), QStringLiteral("p\u00e4ss"));
    client.useFeature(oru::SmtpClient::AUTH_CRAM_MD5, settings & 4);
    client.useFeature(oru::SmtpClient::DSN, settings & 8);
    if (settings & 16)
        client.useFeature(oru::SmtpClient::AUTH_LOGIN, false);

    if (gVerbose) {
        QObject::connect(&client, &oru::SmtpClient::sent, &client,
                         [](oru::constEMailPtr mail, int code, const QString &text, int job) {
                             std::fprintf(stderr, "sent: job %d %s %d %s\n", job, mail ? "mail" : "null",
                                          code, qPrintable(text.trimmed()));
                         },
                         Qt::DirectConnection);
    }

    QList<oru::EMail> mails;
    for (int i = 0; i < ((settings >> 5) & 3); ++i)
        mails.append(message(i));

    const int id = client.send(mails);
    const int code = client.waitForSent(id, SessionWaitMs);
    // -2 is also what a server answering "-2" leaves as the last code, so the
    // pool tells whether the job has really finished.
    fuzz::require(code != -2 || oru::ovkQtThreadPool::globalInstance()->waitForFinished(id, 0),
                  "the session ends once the server has closed");
    fuzz::require(code == client.responseCode(id), "the wait returns the recorded code");
    server.join();
    return 0;
}
