#include "t93Fixture.h"

#include <QtWidgets>

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
                               can->interfaceErrorToString(11).section(QLatin1Char('\n'), 2, 2)};
        };
        const QStringList inGerman{"Die Empfangswarteschlange ist leer."_s,
                                   "Der UDP-Socket konnte nicht angelegt werden."_s,
                                   "Der TCP-Puffer des T93 ist übergelaufen."_s};
        QCOMPARE(texts(), inGerman);
        QCOMPARE(can->commonInfo().description(), "T93-Ethernet-Schnittstelle"_s);
        QCoreApplication::removeTranslator(&german);
        QCOMPARE(texts(), list("Receive queue empty.|Create UDP socket failed.|T93 TCP buffer overflow."_s, '|'));
        QCoreApplication::installTranslator(&german);
        QCOMPARE(texts(), inGerman);
    }

    void openDialogFollowsTheHostsLanguage()
    {
        QTranslator german;
        QVERIFY(german.load("interfaceT93_de"_s, QStringLiteral(CIM_TRANSLATION_DIR)));
        const std::unique_ptr<CCanInterface> can(plugin().createInterface());
        const QStringList inGerman{"T93-Konfiguration"_s, "Hostname"_s};
        const QStringList inEnglish{"T93 configuration dialog"_s, "Host Name"_s};
        bool isDone = false;
        QCoreApplication::installTranslator(&german);
        QTimer::singleShot(0, [&] {
            auto* const dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
            const auto shown = [&] { return QStringList{dialog->windowTitle(), dialog->findChild<QLabel*>()->text()}; };
            QTimer::singleShot(12000, dialog, &QDialog::reject); // after a comparison that failed
            QCOMPARE(shown(), inGerman);
            QCoreApplication::removeTranslator(&german);
            QTRY_COMPARE(shown(), inEnglish);
            QCoreApplication::installTranslator(&german);
            QTRY_COMPARE(shown(), inGerman);
            dialog->reject();
            isDone = true;
        });
        can->configure(nullptr, {});
        QVERIFY(isDone);
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
};

QTEST_MAIN(TranslationsTest)
#include "tst_translations.moc"
