#pragma once

#include <QStringList>

class QCoreApplication;

namespace vexmor::Apps
{

/// Installs the catalogs NAME_LANGUAGE.qm in the language of the user's environment (LANGUAGE, LC_ALL, LC_MESSAGES and
/// LANG, as gettext uses them). Call it before the plugin is loaded. Catalogs are searched in this program's folder of
/// translations and in that of Qt ("qtbase"). The application owns the translators.
///
/// All catalogs use the same language: the first of the user's languages in which the first catalog of the list exists.
/// If English comes before it, or the locale is C, nothing is installed, because the texts in the code are English.
void installTranslations(QCoreApplication& application, const QStringList& catalogs);

} // namespace vexmor::Apps
