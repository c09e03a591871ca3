#include "t93Fixture.h"

#include <QApplication>
#include <QDialog>
#include <QProcess>
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
        QVERIFY(german.load(QStringLiteral("interfaceT93_de"), QStringLiteral(CIM_TRANSLATION_DIR)));
        QCoreApplication::installTranslator(&german); // before the plugin is loaded
        const std::unique_ptr<CCanInterface> can(plugin().createInterface());
        const auto texts = [&can] { // a text of each kind
            return can->errorCodeToString(4) + QLatin1Char('|') + can->errorCodeToString(101) + QLatin1Char('|') +
                   can->interfaceErrorToString(11).section(QLatin1Char('\n'), 2, 2) + QLatin1Char('|') +
                   dialogTitle(*can);
        };
        const QString inGerman =
            QString::fromUtf8("Die Empfangswarteschlange ist leer.|Der UDP-Socket konnte nicht angelegt "
                              "werden.|Der TCP-Puffer des T93 ist übergelaufen.|T93-Konfiguration");
        QCOMPARE(texts(), inGerman);
        QCOMPARE(can->commonInfo().description(), QStringLiteral("T93-Ethernet-Schnittstelle"));
        QCoreApplication::removeTranslator(&german);
        QCOMPARE(texts(), QStringLiteral("Receive queue empty.|Create UDP socket failed.|T93 TCP buffer overflow.|T93 "
                                         "configuration dialog"));
        QCoreApplication::installTranslator(&german);
        QCOMPARE(texts(), inGerman);
    }

    void cimctlSpeaksTheUsersLanguage_data()
    {
        QTest::addColumn<bool>("isGerman");
        for (const char* environment : {"LANG=de_DE.UTF-8", "LANG=de_AT", "LANG=en_US.UTF-8 LC_MESSAGES=de_CH.UTF-8",
                                        "LANG=fr_FR.UTF-8 LANGUAGE=fr:de", "LC_ALL=C.UTF-8 LANGUAGE=de"}) {
            QTest::newRow(environment) << true;
        }
        for (const char* environment : {"LANG=de_DE.UTF-8 LANGUAGE=en_GB:de", "LANG=de_DE.UTF-8 LC_ALL=C",
                                        "LC_ALL=C LANGUAGE=de", "LANG=C.UTF-8", "LANG=fr_FR.UTF-8"}) {
            QTest::newRow(environment) << false;
        }
    }
    void cimctlSpeaksTheUsersLanguage()
    {
        QFETCH(bool, isGerman);
        QProcessEnvironment environment;
        for (const QString& variable : QString::fromLatin1(QTest::currentDataTag()).split(QLatin1Char(' '))) {
            environment.insert(variable.section(QLatin1Char('='), 0, 0), variable.section(QLatin1Char('='), 1));
        }
        QProcess cimctl;
        cimctl.setProcessEnvironment(environment);
        cimctl.start(QStringLiteral(CIM_CIMCTL), {QStringLiteral("dump"), QStringLiteral("127.0.0.1:1")});
        QVERIFY(cimctl.waitForFinished());
        const QByteArray refused = isGerman ? "error 103: Die TCP-Verbindung konnte" : "error 103: TCP connect failed.";
        QCOMPARE(cimctl.readAllStandardError().left(refused.size()), refused);
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
