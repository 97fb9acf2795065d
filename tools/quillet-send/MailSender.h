// Sends copies of one message over one or more jobs of one SMTP client.
#ifndef QUILLET_SEND_MAILSENDER_H
#define QUILLET_SEND_MAILSENDER_H

#include <Quillet.h>

#include <QList>

namespace send {

/// How many messages each of jobs jobs carries so that together they carry
/// count: as even as possible, the larger shares first. Never more jobs than
/// messages; at least one job.
QList<int> shareOut(int count, int jobs);

/// Sends count copies of mail through one client, spread over jobs jobs
/// that run at once, prints every outcome, waits for every job and returns
/// the exit status: 0 when every copy was accepted, 1 otherwise.
int sendCopies(const oru::SmtpAccess &access, bool allowCramMd5, const oru::EMail &mail,
               int count, int jobs);

} // namespace send

#endif
