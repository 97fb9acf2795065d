#include "smtp/SmtpClient.h"

#include "support/MutexLocker.h"
#include "support/ovkQtThreadPool.h"

#include <utility>

namespace oru {

int SmtpClient::gEmailMetaTypes[3] = {0, 0, 0};

namespace {

template <typename T>
int registerOnce(const char* name)
{
    const int known = QMetaType::type(name);
    return known != QMetaType::UnknownType ? known : qRegisterMetaType<T>(name);
}

// Registers the message pointer types while the library is loaded, so that
// sent() can be queued to receivers in other threads from the first job on.
struct MetaTypeRegistration
{
    MetaTypeRegistration()
    {
        SmtpClient::gEmailMetaTypes[0] = registerOnce<EMail*>("oru::EMail*");
        SmtpClient::gEmailMetaTypes[1] = registerOnce<EMailPtr>("oru::EMailPtr");
        SmtpClient::gEmailMetaTypes[2] = registerOnce<constEMailPtr>("oru::constEMailPtr");
    }
};

const MetaTypeRegistration gMetaTypeRegistration;

QSet<SmtpClient::ExtFeature> defaultFeatures()
{
    QSet<SmtpClient::ExtFeature> set;
    set.insert(SmtpClient::STARTTLS);
    set.insert(SmtpClient::AUTH_LOGIN);
    set.insert(SmtpClient::AUTH_PLAIN);
    return set;
}

} // namespace

SmtpClient::SmtpClient(const SmtpAccess& access, QObject* parent)
    : QObject(parent), access(access), features(defaultFeatures())
{
}

SmtpClient::SmtpClient(const QString& host, QObject* parent)
    : QObject(parent), features(defaultFeatures())
{
    static_cast<HttpAccess&>(access) = HttpAccess(host, 25, QString(), QString());
    access.tls = false;
}

SmtpClient::~SmtpClient() = default;

SmtpAccess& SmtpClient::server()
{
    return access;
}

void SmtpClient::setAuthentication(const QString& user, const QString& password)
{
    access.setAuthentication(user, password);
}

int SmtpClient::send(const EMail& mail)
{
    return send(QList<EMail>() << mail);
}

int SmtpClient::send(const QList<EMail>& mails)
{
    boost::shared_ptr<SmtpJob> job(new SmtpJob);
    job->client = this;
    static_cast<HttpAccess&>(job->access) = access;
    job->access.tls = access.tls;
    job->mails.reserve(mails.size());
    for (const EMail& mail : mails)
        job->mails.append(EMailPtr(new EMail(mail)));
    job->currentMail.reset();
    // The pool becomes the only owner. The job learns its id as the first
    // argument of run(int, QTime*); storing it here as well would race with
    // a job that has already started.
    return ovkQtThreadPool::globalInstance()->schedule(
        boost::shared_ptr<IRunnable>(std::move(job)));
}

int SmtpClient::waitForSent(int jobId, int timeout)
{
    if (!ovkQtThreadPool::globalInstance()->waitForFinished(jobId, long(timeout)))
        return -2;
    MutexLocker lock(responseCodesLock);
    return responseCodes[jobId];
}

void SmtpClient::useFeature(ExtFeature feature, bool on)
{
    if (on)
        features.insert(feature);
    else
        features.remove(feature);
}

int SmtpClient::responseCode(int jobId) const
{
    MutexLocker lock(responseCodesLock);
    return responseCodes.value(jobId, 0);
}

void SmtpClient::setResponseCode(int jobId, int code)
{
    MutexLocker lock(responseCodesLock);
    responseCodes.insert(jobId, code);
}

SmtpClient::SmtpJob::SmtpJob() = default;

SmtpClient::SmtpJob::~SmtpJob() = default;

} // namespace oru
