// Server settings of quillet-send: settings files, command line, password.
#ifndef QUILLET_SEND_SERVERSETTINGS_H
#define QUILLET_SEND_SERVERSETTINGS_H

#include "SendOptions.h"

#include <Quillet.h>

#include <QString>

namespace send {

/// True when path names an XML settings file (its name ends in ".xml").
bool isXmlSettingsFile(const QString &path);

/// Reads the settings of group from an INI file (through SmtpAccess::load
/// with the prefix "group/") or an XML file (SmtpAccess::loadXml on the
/// element named group: the document element or its first descendant of
/// that name). A port the file lacks is left as it was.
bool loadSettingsFile(const QString &path, const QString &group, oru::SmtpAccess *access,
                      QString *error);

/// Writes the settings under group, never the password: an INI file keeps
/// its other keys (and a password stored there before); an XML file is
/// written anew.
bool saveSettingsFile(const QString &path, const QString &group, const oru::SmtpAccess &access,
                      QString *error);

/// The settings a run uses: the settings file of --config, then the server
/// options of the command line on top, then the default port of the kind of
/// connection. Fails (naming the option) when a file cannot be read.
bool resolveServerSettings(const SendOptions &options, oru::SmtpAccess *access, QString *error);

/// Sets the password when a user is set: from QUILLET_PASSWORD when that
/// is set, else the one of the settings file, else a prompt without echo
/// when standard input is a terminal. Fails when none of these gives one.
bool resolvePassword(oru::SmtpAccess *access, QString *error);

} // namespace send

#endif
