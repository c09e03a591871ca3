#include "t93Fixture.h"

#include <QApplication>
#include <QDialog>
#include <QLabel>
#include <QTimer>
#include <QTranslator>

using namespace vexmor::Test;

/// The German texts of the library, in a host that changes its language and in the command-line host.
class TranslationsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void textsFollowTheHostsLanguage()
    {
        QTranslator german;
        QVERIFY(german.load("interfaceT93_de"_s, QStringLiteral(CIM_TRANSLATION_DIR)));
        QCoreApplication::installTranslator(&german); // before the plugin is loaded
        const std::unique_ptr<CCanInterface> can(plugin().createInterface());
        const auto texts = [&can] { // one of each kind
            return QStringList{can->errorCodeToString(4), can->errorCodeToString(101),
                               can->interfaceErrorToString(11).section(QLatin1Char('\n'), 2, 2), dialogTitle(*can)};
        };
        const QStringList inGerman{"Die Empfangswarteschlange ist leer."_s,
                                   "Der UDP-Socket konnte nicht angelegt werden."_s,
                                   "Der TCP-Puffer des T93 ist übergelaufen."_s, "T93-Konfiguration"_s};
        QCOMPARE(texts(), inGerman);
        QCOMPARE(can->commonInfo().description(), "T93-Ethernet-Schnittstelle"_s);
        QCoreApplication::removeTranslator(&german);
        QCOMPARE(texts(), (QStringList{"Receive queue empty."_s, "Create UDP socket failed."_s,
                                       "T93 TCP buffer overflow."_s, "T93 configuration dialog"_s}));
        QCoreApplication::installTranslator(&german);
        QCOMPARE(texts(), inGerman);
    }

    void openDialogFollowsTheHostsLanguage()
    {
        QTranslator german;
        QVERIFY(german.load("interfaceT93_de"_s, QStringLiteral(CIM_TRANSLATION_DIR)));
        const std::unique_ptr<CCanInterface> can(plugin().createInterface());
        bool hasFollowed = false;
        QTimer::singleShot(0, [&] {
            auto* const dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
            const QLabel* const label = dialog->findChild<QLabel*>();
            const auto shows = [&](const QString& title, const QString& text) {
                return QTest::qWaitFor([&] { return dialog->windowTitle() == title && label->text() == text; });
            };
            hasFollowed = shows("T93 configuration dialog"_s, "Host Name"_s);
            QCoreApplication::installTranslator(&german);
            hasFollowed = hasFollowed && shows("T93-Konfiguration"_s, "Hostname"_s);
            QCoreApplication::removeTranslator(&german);
            hasFollowed = hasFollowed && shows("T93 configuration dialog"_s, "Host Name"_s);
            dialog->reject();
        });
        can->configure(nullptr, {});
        QVERIFY(hasFollowed);
    }

    void cimctlSpeaksTheUsersLanguage_data()
    {
        const auto row = columns<bool>("isGerman");
        for (const char* environment : {"LANG=de_DE.UTF-8", "LANG=de_AT", "LANG=en_US.UTF-8 LC_MESSAGES=de_CH.UTF-8",
                                        "LANG=fr_FR.UTF-8 LANGUAGE=fr:de", "LC_ALL=C.UTF-8 LANGUAGE=de"}) {
            row(environment, true);
        }
        for (const char* environment : {"LANG=de_DE.UTF-8 LANGUAGE=en_GB:de", "LANG=de_DE.UTF-8 LC_ALL=C",
                                        "LC_ALL=C LANGUAGE=de", "LANG=C.UTF-8", "LANG=fr_FR.UTF-8"}) {
            row(environment, false);
        }
    }
    void cimctlSpeaksTheUsersLanguage()
    {
        const QByteArray said = run("env -i %1 " CIM_CIMCTL " dump 127.0.0.1:1"_s.arg(QLatin1String(rowName()))).err;
        const QByteArray refused =
            cell<bool>("isGerman") ? "error 103: Die TCP-Verbindung konnte" : "error 103: TCP connect failed.";
        QCOMPARE(said.left(refused.size()), refused);
    }

private:
    static QString dialogTitle(CCanInterface& can)
    {
        QString title;
        QTimer::singleShot(0, [&title] {
            auto* const dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
            title = dialog->windowTitle();
            dialog->reject();
        });
        can.configure(nullptr, {});
        return title;
    }
};

QTEST_MAIN(TranslationsTest)
#include "tst_translations.moc"
