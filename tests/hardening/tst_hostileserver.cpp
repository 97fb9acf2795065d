// Servers that hang up, stall, lie or talk nonsense at every step of a
// session: each job must end, with the reports and wait result the client
// promises, within its bounded waits, and without harm to the host.

#include "HostileScenario.h"

#include <QtTest>

#include <vector>

using Peer = ScriptedSmtpPeer;

namespace {

const QString kGreeting = QStringLiteral("S: 220 localhost ESMTP");
const QString kEhlo = QStringLiteral("C: EHLO localhost");
const QString kMailFrom = QStringLiteral("C: MAIL FROM:<a@example.org>");
const QString kRcptTo = QStringLiteral("C: RCPT TO:<b@example.org>");
const QString kOk = QStringLiteral("S: 250 OK");
// The first bytes of a TLS record carrying a ServerHello, cut short.
const QString kHalfServerHello = QStringLiteral("S~ \\x16\\x03\\x03\\x00\\x59\\x02\\x00\\x00\\x55\\x03\\x03");

// Jobs that meet no silence: each must end long before a single 30 s wait
// could have run out.
QVector<HostileScenario> quickScenarios()
{
    const QStringList open = Peer::greetingAndEhlo();
    const QStringList delivery = envelopeSteps() + Peer::dataAndQuit();
    const QStringList startTls = Peer::greetingAndEhlo({"STARTTLS"}) + QStringList{"C: STARTTLS", "S: 220 go ahead"};
    const QStringList cram = Peer::greetingAndEhlo({"AUTH CRAM-MD5 LOGIN PLAIN"}) + QStringList{"C: AUTH CRAM-MD5"};
    const QStringList login = Peer::greetingAndEhlo({"AUTH LOGIN"}) + QStringList{"C: AUTH LOGIN"};
    const QStringList data = open + envelopeSteps() + QStringList{"C: DATA", "S: 354 go ahead"};
    const QString longChallenge = "S: 334 " + QString::fromLatin1(QByteArray(4096, 'c').toBase64());
    const QString filler = QStringLiteral("S* 10000 250-X-FILLER some extension text");
    // After the upgrade only LOGIN is offered, and the session goes on.
    const QStringList afterTls = QStringList{"starttls", "C: EHLO localhost"} + Peer::ehloReply({"AUTH LOGIN"})
        + Peer::authLogin("joe", "pw") + delivery;
    const auto injected = [&](const char* name, const QStringList& before, const QStringList& reply, bool upgraded) {
        return HostileScenario{QStringLiteral("STARTTLS injection: ") + name, "starttls auth",
                               Peer::greetingAndEhlo({"STARTTLS"}) + before + QStringList{"C: STARTTLS"} + reply + afterTls,
                               {upgraded ? "250@0" : "-1"}, upgraded ? 250 : 220};
    };

    return {
        // Connecting
        {"refused connection", "refused", {}, {"-1"}, 0},
        {"unresolvable host name", "no-dns", {}, {"-1"}, 0},
        {"close right after connecting", "", {"close"}, {"0"}, 0},
        {"close after the greeting", "", {kGreeting, "close"}, {"0"}, 0},
        {"close inside the EHLO reply", "auth", {kGreeting, kEhlo, "S: 250-localhost", "S: 250-AUTH LOGIN", "close"},
         {"0"}, 0},

        // TLS
        {"close after STARTTLS is accepted", "starttls", startTls + QStringList{"close"}, {"-1"}, 220},
        {"close before answering the TLS hello", "starttls", startTls + QStringList{"wait 200", "close"}, {"-1"}, 220},
        {"close in the middle of the server's TLS hello", "starttls",
         startTls + QStringList{"wait 100", kHalfServerHello, "close"}, {"-1"}, 220},
        {"STARTTLS answered 220, then plaintext", "starttls",
         startTls + QStringList{"wait 100", "S: 250 plaintext after all", "expect-close"}, {"-1"}, 220},
        // Lines injected ahead of the handshake never count as replies: with
        // the 220 in one segment they are dropped, later they break it.
        injected("fake EHLO reply offering PLAIN, same segment", {},
                 {"S~ 220 go ahead\\r\\n250-localhost\\r\\n250-AUTH PLAIN\\r\\n250 OK\\r\\n"}, true),
        injected("replies for a whole session, same segment", {},
                 {"S~ 220 go ahead\\r\\n250-localhost\\r\\n250-AUTH LOGIN\\r\\n250 OK\\r\\n334 VXNlcm5hbWU6\\r\\n"
                  "334 UGFzc3dvcmQ6\\r\\n235 fake\\r\\n250 OK\\r\\n250 OK\\r\\n354 go\\r\\n250 OK\\r\\n"},
                 true),
        injected("injected refusal, same segment", {}, {"S~ 220 go ahead\\r\\n554 injected refusal\\r\\n"}, true),
        injected("bytes that look like TLS, same segment", {},
                 {"S~ 220 go ahead\\r\\n\\x16\\x03\\x03\\x00\\x02\\x01\\x00"}, true),
        injected("a line without its end, same segment", {}, {"S~ 220 go ahead\\r\\n250 partial"}, true),
        injected("fake EHLO reply after the 220", {},
                 {"S: 220 go ahead", "wait 300", "S: 250-localhost", "S: 250-AUTH PLAIN", "S: 250 OK"}, false),
        injected("false 220 ahead of the STARTTLS command", {"S: 220 early and false"}, {"S: 220 go ahead"}, false),
        {"SMTPS: close in the middle of the server's TLS hello", "ssl plain-peer", {"wait 100", kHalfServerHello, "close"},
         {"-1"}, 0},
        {"SMTPS: close right after the handshake", "ssl", {"close"}, {"0"}, 0},
        {"SMTPS: plain server", "ssl plain-peer", {"S: 220 plain greeting", "expect-close"}, {"-1"}, 0},
        {"SMTPS: garbage instead of the server's TLS hello", "ssl plain-peer",
         {"S~ \\x16\\x03\\x03\\x00\\x10garbage-garbage!", "expect-close"}, {"-1"}, 0},
        {"SMTPS: TLS server sending garbage", "ssl", {"S~ \\x01\\x02\\xff\\xfe garbage\\x00\\r\\n", "expect-close"},
         {"0"}, 0},

        // Authentication
        {"CRAM-MD5: close after AUTH", "auth cram", cram + QStringList{"close"}, {"0"}, 0},
        {"CRAM-MD5: close after the challenge", "auth cram",
         cram + QStringList{"S: 334 PDEyMzQ1QGxvY2FsaG9zdD4=", "close"}, {"0"}, 0},
        {"CRAM-MD5: empty challenge, then refused", "auth cram", cram + QStringList{"S: 334 ", "C: *", "S: 535 no"},
         {"535"}, 535},
        {"CRAM-MD5: 4 KB challenge, then accepted", "auth cram",
         cram + QStringList{longChallenge, "C: *", "S: 235 ok"} + delivery, {"250@0"}, 250},
        {"LOGIN: close after AUTH LOGIN", "auth", login + QStringList{"close"}, {"0"}, 0},
        {"LOGIN: close after the user name", "auth", login + QStringList{"S: 334 VXNlcm5hbWU6", "C: am9l", "close"},
         {"0"}, 0},
        {"LOGIN: close after the password", "auth",
         login + QStringList{"S: 334 VXNlcm5hbWU6", "C: am9l", "S: 334 UGFzc3dvcmQ6", "C: cHc=", "close"}, {"0"}, 0},
        {"PLAIN: close after the initial response", "auth",
         Peer::greetingAndEhlo({"AUTH PLAIN"}) + QStringList{"C: AUTH PLAIN am9lOnB3", "close"}, {"0"}, 0},

        // Envelope and data
        {"close after MAIL FROM, two messages", "", open + QStringList{kMailFrom, "close"}, {"0@0", "0@1"}, 0, 2},
        {"close after RCPT TO", "", open + QStringList{kMailFrom, kOk, kRcptTo, "close"}, {"0@0"}, 0},
        {"close after DATA", "", open + envelopeSteps() + QStringList{"C: DATA", "close"}, {"0@0"}, 0},
        {"close in the middle of a 4 MB body", "", data + QStringList{"C: *", "close"}, {"0@0"}, 0, 1, 4 << 20},
        {"close before the end-of-data reply", "", data + QStringList{"C: <data>", "close"}, {"0@0"}, 0},
        {"close after the first of two messages", "",
         open + envelopeSteps() + Peer::message() + QStringList{kMailFrom, "close"}, {"250@0", "0@1"}, 0, 2},

        // Garbage and zero bytes
        {"garbage instead of the greeting", "", {"S: hello, this is not SMTP"}, {"0"}, 0},
        {"binary garbage instead of the EHLO reply", "", {kGreeting, kEhlo, "S~ \\xff\\xfe\\x01\\x7f garbage\\r\\n"},
         {"0"}, 0},
        {"garbage instead of the reply to MAIL FROM", "", open + QStringList{kMailFrom, "S: ok, sure"}, {"0@0"}, 0},
        {"zero byte inside the greeting's code", "", {"S~ 2\\x0020 ready\\r\\n"}, {"2"}, 2},
        {"zero byte after the greeting's code", "", QStringList{"S~ 220\\x00 hidden\\r\\n", kEhlo} + Peer::ehloReply({}) + delivery,
         {"250@0"}, 250},
        {"zero byte hiding an AUTH extension", "auth",
         QStringList{kGreeting, kEhlo, "S: 250-localhost", "S~ 250-AUTH\\x00 LOGIN\\r\\n", kOk} + delivery, {"250@0"}, 250},

        // Size
        {"1 MB greeting without a line end", "", {"big-line 1048576", "stall"}, {"0"}, 0},
        {"10 000 continuation lines in the EHLO reply", "",
         QStringList{kGreeting, kEhlo, "S: 250-localhost", filler, kOk} + delivery, {"250@0"}, 250},
        {"10 000 AUTH lines in the EHLO reply", "auth",
         QStringList{kGreeting, kEhlo, "S: 250-localhost", "S* 10000 250-AUTH LOGIN", kOk} + Peer::authLogin("joe", "pw")
             + delivery,
         {"250@0"}, 250},
        {"10 000 continuation lines and a close", "", {kGreeting, kEhlo, "S: 250-localhost", filler, "close"}, {"0@0"}, 0},

        // Codes outside 100 to 599
        {"greeting code 000", "", {"S: 000 zero"}, {"0"}, 0},
        {"greeting code 099", "", {"S: 099 low"}, {"99"}, 99},
        {"greeting code 999", "", {"S: 999 high"}, {"999"}, 999},
        {"greeting code -25", "", {"S: -25 minus"}, {"-25"}, -25},
        {"MAIL FROM answered 600", "", open + QStringList{kMailFrom, "S: 600 beyond"}, {"600@0"}, 600},
        {"RCPT TO answered by a continuation line", "", open + QStringList{kMailFrom, kOk, kRcptTo, "S: 250-more to come"},
         {"-250@0"}, -250},
        {"end of data answered with a four-digit code", "", data + QStringList{"C: <data>", "S: 1000 four digits"},
         {"100@0"}, 100},
    };
}

// Jobs that meet a silent server and sit through full 30 s waits; they run
// side by side.
QVector<HostileScenario> silentScenarios()
{
    const QStringList data = Peer::greetingAndEhlo() + envelopeSteps() + QStringList{"C: DATA", "S: 354 go ahead"};
    return {
        {"silent after connecting", "", {"stall"}, {"0"}, 0, 1, 0, 1},
        {"silent after EHLO", "", {kGreeting, kEhlo, "stall"}, {"0"}, 0, 1, 0, 1},
        {"greeting without a line end, then silence", "", {"S~ 220 partial greeting", "stall"}, {"0"}, 0, 1, 0, 1},
        {"silent in the STARTTLS handshake", "starttls",
         Peer::greetingAndEhlo({"STARTTLS"}) + QStringList{"C: STARTTLS", "S: 220 go ahead", "stall"}, {"-1"}, 220, 1, 0, 1},
        {"SMTPS: silent plain server", "ssl plain-peer", {"stall"}, {"-1"}, 0, 1, 0, 1},
        {"silent before the end-of-data reply", "", data + QStringList{"C: <data>", "stall"}, {"0@0"}, 0, 1, 0, 1},
        // The body waits once for the full socket to drain, the reply once.
        {"never reads a 20 MB message", "", data + QStringList{"stall"}, {"0@0"}, 0, 1, 20 << 20, 2},
        {"SMTPS: never reads a 20 MB message", "ssl", data + QStringList{"stall"}, {"0@0"}, 0, 1, 20 << 20, 2},
        {"never reads a message with three 8 MB attachments", "", data + QStringList{"stall"}, {"0@0"}, 0, 1, 8 << 20, 2, 3},
        // A server that is only slow gets the whole message.
        {"pauses 35 s before reading a 20 MB message", "",
         data + QStringList{"wait 35000", "C: <data>", kOk} + Peer::quit(), {"250@0"}, 250, 1, 20 << 20, 1},
    };
}

// Starts every scenario at once, then checks each; empty when all passed.
QString runSideBySide(const QVector<HostileScenario>& scenarios)
{
    std::vector<std::unique_ptr<HostileRun>> runs;
    QStringList problems;
    for (const HostileScenario& scenario : scenarios) {
        runs.emplace_back(new HostileRun(scenario));
        QString problem;
        if (!runs.back()->start(&problem))
            problems << scenario.name + QStringLiteral(": ") + problem;
    }
    // Shorter jobs first, so that no wait stands in for another's.
    std::stable_sort(runs.begin(), runs.end(),
                     [](const auto& a, const auto& b) { return a->scenario().stalls < b->scenario().stalls; });
    for (const auto& run : runs) {
        const QString problem = run->started() ? run->check() : QString();
        if (!problem.isEmpty())
            problems << problem;
    }
    return problems.join(QLatin1Char('\n'));
}

} // namespace

class tst_HostileServer : public QObject
{
    Q_OBJECT

private slots:
    void quickEnding_data();
    void quickEnding();
    void quickEndingAllAtOnce();
    void silentServers();
};

void tst_HostileServer::quickEnding_data()
{
    QTest::addColumn<HostileScenario>("scenario");
    for (const HostileScenario& scenario : quickScenarios())
        QTest::newRow(qPrintable(scenario.name)) << scenario;
}

void tst_HostileServer::quickEnding()
{
    QFETCH(HostileScenario, scenario);
    HostileRun run(scenario);
    QString problem;
    QVERIFY2(run.start(&problem), qPrintable(problem));
    problem = run.check();
    QVERIFY2(problem.isEmpty(), qPrintable(problem));
}

void tst_HostileServer::quickEndingAllAtOnce()
{
    // The same failures in parallel jobs must not disturb each other.
    const QString problems = runSideBySide(quickScenarios());
    QVERIFY2(problems.isEmpty(), qPrintable(problems));
}

void tst_HostileServer::silentServers()
{
    const QString problems = runSideBySide(silentScenarios());
    QVERIFY2(problems.isEmpty(), qPrintable(problems));
}

QTEST_GUILESS_MAIN(tst_HostileServer)
#include "tst_hostileserver.moc"
