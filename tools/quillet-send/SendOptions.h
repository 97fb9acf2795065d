// What the command line of quillet-send asked for, as plain data.
#ifndef QUILLET_SEND_SENDOPTIONS_H
#define QUILLET_SEND_SENDOPTIONS_H

#include <QString>
#include <QStringList>

namespace send {

struct SendOptions
{
    // Server settings. Unset values fall back to the settings file, then to
    // the defaults of the kind of connection.
    QString server;
    bool serverGiven = false;
    int port = 0;
    bool portGiven = false;
    bool ssl = false;
    bool starttls = false;
    QString user;
    bool userGiven = false;
    bool cramMd5 = false;
    QString configFile;
    QString configGroup = QStringLiteral("smtp");
    QString saveConfigFile;

    // The message.
    QString from;
    QStringList to;   // each entry one argument, itself a list of addresses
    QStringList cc;
    QStringList bcc;
    QString subject;
    QString text;
    bool textGiven = false;
    QString textFile;  // "-" is standard input
    QString htmlFile;  // "-" is standard input
    QStringList attachments;
    QStringList inlineImages;

    // Delivery.
    int count = 1;
    int jobs = 1;

    // Hand-off to a mail program instead of sending.
    bool compose = false;
    QString app = QStringLiteral("auto");
    QString program;

    bool hasRecipients() const { return !to.isEmpty() || !cc.isEmpty() || !bcc.isEmpty(); }
};

} // namespace send

#endif
