#include "MailSender.h"

#include "CommandLine.h"
#include "OutcomeReport.h"
#include "Terminal.h"

#include <QTextStream>

namespace send {

QList<int> shareOut(int count, int jobs)
{
    QList<int> shares;
    const int parts = qBound(1, jobs, qMax(1, count));
    shares.reserve(parts);
    for (int i = 0; i < parts; ++i)
        shares.append(count / parts + (i < count % parts ? 1 : 0));
    return shares;
}

int sendCopies(const oru::SmtpAccess &access, bool allowCramMd5, const oru::EMail &mail,
               int count, int jobs)
{
    oru::SmtpClient client(access);
    if (allowCramMd5)
        client.useFeature(oru::SmtpClient::AUTH_CRAM_MD5, true);

    OutcomeReport report(count, stdout, count > 1 && isTerminal(StandardError));
    // Reports arrive on the pool's threads; the report serialises them.
    QObject::connect(
        &client, &oru::SmtpClient::sent, &client,
        [&report](oru::constEMailPtr sentMail, int code, const QString &text, int jobId) {
            const bool accepted = sentMail && code == 250 && text == QLatin1String("OK");
            report.record(jobId, code, text, accepted);
        },
        Qt::DirectConnection);

    // The copies share the message's data; the client makes its own copies
    // of the list entries, which share it too until the sender changes them.
    const QList<int> shares = shareOut(count, jobs);
    QList<int> jobIds;
    jobIds.reserve(shares.size());
    QList<oru::EMail> batch;
    batch.reserve(shares.first());
    for (int share : shares) {
        while (batch.size() > share)
            batch.removeLast();
        while (batch.size() < share)
            batch.append(mail);
        jobIds.append(client.send(batch));
    }

    // The client must outlive its jobs: wait for every one of them.
    for (int id : qAsConst(jobIds))
        client.waitForSent(id, -1);
    report.finish();

    QTextStream err(stderr);
    err << "quillet-send: " << report.accepted() << " of " << count
        << (count == 1 ? " message" : " messages") << " accepted\n";
    return report.allAccepted() ? ExitOk : ExitFailed;
}

} // namespace send
