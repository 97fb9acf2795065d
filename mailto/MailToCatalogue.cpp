// Parameter templates of the known mail programs and the call record itself.

#include "mailto/MailTo.h"

namespace oru {

AppCall::AppCall(ECall type, const QString &program, const QString &path,
                 bool searchPending, const ParamSet &params)
    : type(type)
    , program(program)
    , path(path)
    , searchPending(searchPending)
    , params(params)
{
}

ParamSet MailTo::defaultParamSet(EApp app)
{
    // Every value is an empty string that MailTo::call overwrites in place.
    QStringList values{QString(), QString(), QString(), QString()};
    const QStringList none;
    ParamSet set;

    switch (app) {
    case eRawFields:
    case eRawFieldsAlt:
        set.reserve(4);
        for (int i = 0; i < 4; ++i)
            set.emplace_back(QString(), QStringList{QString()});
        break;
    case eThunderbird:
        set.emplace_back(QStringLiteral("-compose"), none);
        set.emplace_back(QStringLiteral("to='%1',subject='%2',body='%3',attachment='file:///%4'"),
                         values);
        break;
    case eOutlook:
        values.removeLast();
        set.emplace_back(QStringLiteral("/c ipm.note"), none);
        set.emplace_back(QStringLiteral("/m \"%1&subject=%2&body=%3\""), values);
        set.emplace_back(QStringLiteral("/a \"%1\""), QStringList{QString()});
        break;
    case eMailUrlSwitch:
    case eMailUrlSwitchAlt1:
    case eMailUrlSwitchAlt2:
        values.removeLast();
        set.emplace_back(QStringLiteral("/mailurl:mailto:%1?subject=%2&body=%3"), values);
        set.emplace_back(QStringLiteral("/attach:%1"), QStringList{QString()});
        break;
    case eMailtoUrl:
    case eMailtoUrlAlt:
        set.emplace_back(
            QStringLiteral("mailto:%1?subject=\"%2\"&body=\"%3\"&attach=\"file:///%4\""),
            values);
        break;
    }
    return set;
}

} // namespace oru
