#pragma once

#include <QStringList>

class QCoreApplication;

namespace vexmor::Apps
{

/// Installs the catalogs NAME_LANGUAGE.qm in the language of the user's environment (LANGUAGE, LC_ALL, LC_MESSAGES,
/// LANG, in the way of gettext), before the plugin is loaded. They lie in the folder of translations beside this
/// program, or with Qt's own ("qtbase"). The application owns the translators.
///
/// All catalogs use one language: the first of the user's languages for which the first catalog in the list exists. So
/// a program never mixes two. Nothing is installed when English comes before that, or the environment says C: the texts
/// are English by themselves.
void installTranslations(QCoreApplication& application, const QStringList& catalogs);

} // namespace vexmor::Apps
