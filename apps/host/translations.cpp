#include "apps/host/translations.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QLocale>
#include <QTranslator>

#include <memory>

namespace vexmor::Apps
{
namespace
{
/// Returns whether the locale is C, so that texts stay English whatever the value of LANGUAGE: scripts that read the
/// output set LC_ALL=C.
bool isUntranslatedLocale()
{
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const QByteArray value = qgetenv(variable);
        if (!value.isEmpty()) {
            return value == "C" || value == "POSIX";
        }
    }
    return true;
}

QString folderOfQt()
{
#if QT_VERSION_MAJOR >= 6
    return QLibraryInfo::path(QLibraryInfo::TranslationsPath);
#else
    return QLibraryInfo::location(QLibraryInfo::TranslationsPath);
#endif
}

/// Installs a catalog. Returns false when it does not exist.
bool installCatalog(QCoreApplication& application, const QString& catalog, const QString& language)
{
    const QString folders[] = {QCoreApplication::applicationDirPath() + QLatin1Char('/') +
                                   QStringLiteral(CIM_TRANSLATION_DIR_FROM_PROGRAM),
                               folderOfQt()};
    auto translator = std::make_unique<QTranslator>();
    for (const QString& folder : folders) {
        if (translator->load(catalog + QLatin1Char('_') + language, folder)) { // for de_AT, also finds de
            QCoreApplication::installTranslator(translator.get());
            translator.release()->setParent(&application);
            return true;
        }
    }
    return false;
}
} // namespace

void installTranslations(QCoreApplication& application, const QStringList& catalogs)
{
    if (isUntranslatedLocale()) {
        return;
    }
    for (QString language : QLocale::system().uiLanguages()) {
        language.replace(QLatin1Char('-'), QLatin1Char('_'));
        const QLocale::Language which = QLocale(language).language();
        if (which == QLocale::English || which == QLocale::C) {
            return;
        }
        if (installCatalog(application, catalogs.first(), language)) {
            for (const QString& catalog : catalogs.mid(1)) {
                installCatalog(application, catalog, language);
            }
            return;
        }
    }
}

} // namespace vexmor::Apps
