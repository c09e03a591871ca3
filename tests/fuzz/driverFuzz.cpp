// A host that does anything, in any order, to an interface whose gateway does anything, too; the sanitizers watch.
// Every code must be one that the operation may give, and in the end a message passes each way.
//
//     driverFuzz [--seed N] [--steps N] [--reader]      the same seed takes the same steps; --reader: messages are
//     taken by
//                                                       another thread (for the thread sanitizer)
#include "t93Fixture.h"

#include <QCommandLineParser>
#include <QSettings>
#include <QTemporaryDir>
#include <QTimer>

#include <atomic>
#include <functional>
#include <initializer_list>
#include <mutex>
#include <random>
#include <thread>

using namespace vexmor::Test;

namespace
{
const QString GROUP = QStringLiteral("CanInterfaces");

std::function<void()> s_spy; ///< what the host does in the spy handler next

int spy(const CCanInterface&, bool, const CCanMessage& message)
{
    if (s_spy) {
        std::exchange(s_spy, nullptr)();
    }
    return message.length();
}
} // namespace

class DriverFuzz : public QObject
{
    Q_OBJECT

public:
    DriverFuzz(unsigned int seed, bool reader) : m_random(seed)
    {
        QString error;
        if (!m_gateway.listen(QHostAddress(QHostAddress::LocalHost), 0, error)) {
            qFatal("%s", qPrintable(error));
        }
        renew();
        if (reader) {
            m_reader = std::thread([this] {
                while (!m_stop) {
                    readAll();
                    std::this_thread::yield();
                }
            });
        }
    }
    ~DriverFuzz() override
    {
        m_stop = true;
        if (m_reader.joinable()) {
            m_reader.join();
        }
    }

    void step()
    {
        struct SAction {
            int weight;
            void (DriverFuzz::*act)();
        };
        static constexpr SAction ACTIONS[] = {
            {30, &DriverFuzz::events},   {20, &DriverFuzz::send},      {10, &DriverFuzz::receive},
            {10, &DriverFuzz::readAll},  {10, &DriverFuzz::misbehave}, {8, &DriverFuzz::garbage},
            {6, &DriverFuzz::open},      {6, &DriverFuzz::actInSpy},   {5, &DriverFuzz::reset},
            {5, &DriverFuzz::actInSlot}, {4, &DriverFuzz::load},       {4, &DriverFuzz::behave},
            {3, &DriverFuzz::close},     {3, &DriverFuzz::drop},       {2, &DriverFuzz::flood},
            {2, &DriverFuzz::cloneIt},   {1, &DriverFuzz::renew}};
        if (!m_can) {
            renew();
        }
        int at = pick(129);
        const SAction* action = ACTIONS;
        for (; at >= action->weight; ++action) {
            at -= action->weight;
        }
        (this->*action->act)();
    }

    /// Whatever was before: with a gateway that behaves, it works.
    bool worksAgain()
    {
        s_spy = nullptr;
        m_slot = nullptr;
        behave();
        renew();
        configure(*m_can, [](CConfigParamT93& param) { param.setProtocolType(CCommonInfo::eProtocolTcp); });
        drop();
        int atGateway = 0;
        connect(&m_gateway, &CSimGateway::messageReceived,
                [&](const CCanMessage& one) { atGateway += one == message(0x123) ? 1 : 0; });
        return QTest::qWaitFor([this] { return m_can->isOpened() || m_can->openCommunication() == RC_OK; }) &&
               QTest::qWaitFor([&] {
                   m_taken = 0;
                   m_bus.send(message(0x321));
                   QTest::qWait(10);
                   readAll();
                   return m_taken > 0;
               }) &&
               m_can->writeMessage(message(0x123)) == RC_OK && QTest::qWaitFor([&] { return atGateway == 1; });
    }

private Q_SLOTS:
    void onInterfaceError(int error)
    {
        if (error < 0 || error > 11) {
            qFatal("interface error %d", error);
        }
        if (m_slot) {
            std::exchange(m_slot, nullptr)();
        }
    }

private:
    int pick(int count) { return static_cast<int>(m_random() % static_cast<unsigned int>(count)); }
    static void expect(const char* operation, int code, std::initializer_list<int> allowed)
    {
        if (std::find(allowed.begin(), allowed.end(), code) == allowed.end()) {
            qFatal("%s gave %d", operation, code);
        }
    }

    // What the host does. Any of it may have deleted the interface when it returns.
    void events() { QCoreApplication::processEvents(QEventLoop::AllEvents, 1 + pick(5)); }
    void open() { expect("open", m_can->openCommunication(), {0, 1, 103, 105}); }
    void close() { expect("close", m_can->closeCommunication(), {0}); }
    void reset() { expect("reset", m_can->resetCommunication(pick(2)), {0, 2, 109}); }
    void send()
    {
        expect("send", m_can->writeMessage(message(std::uint16_t(pick(0x800)), QByteArray(pick(9), 'x'))),
               {0, 2, 102, 108, 109});
    }
    void readAll() // from any thread
    {
        const std::lock_guard lock(m_life);
        int code = RC_OK;
        for (CCanMessage next; m_can && (code = m_can->readMessage(next)) == RC_OK; ++m_taken) {
        }
        expect("read", code, {0, 2, 4});
    }
    void load()
    {
        static const char* const PROTOCOLS[] = {"TCP", "TCP", "UDP", "UDP", "NA", "tcp"};
        QSettings settings;
        settings.beginGroup(GROUP);
        settings.setValue(QStringLiteral("Protocol"), QString::fromLatin1(PROTOCOLS[pick(6)]));
        settings.setValue(QStringLiteral("BusloadPollTime"), pick(20));
        settings.setValue(QStringLiteral("UdpBindAnyIp"), pick(2));
        settings.endGroup();
        expect("load", m_can->loadSettings(QString()), {0, 8});
        expect("save", m_can->saveSettings(QStringLiteral("Elsewhere")), {0});
    }
    void cloneIt() { replace(std::unique_ptr<CCanInterface>(m_can->clone())); }
    void renew() { replace(makeInterface(m_gateway.port(), static_cast<Protocol>(pick(2)))); }
    void replace(std::unique_ptr<CCanInterface> next)
    {
        if (next) {
            connect(next.get(), SIGNAL(interfaceError(int)), this, SLOT(onInterfaceError(int)));
            next->setSpyHandler(spy);
        }
        const std::lock_guard lock(m_life);
        m_can.swap(next); // the old one is deleted behind the lock, when nobody can reach it
    }
    std::function<void()> anyAct()
    {
        const int which = pick(6);
        return [this, which] {
            switch (m_can ? which : -1) {
            case 0:
                close();
                break;
            case 1:
                close();
                open();
                break;
            case 2:
                replace(nullptr);
                break;
            case 3:
                reset();
                break;
            case 4:
                events();
                break;
            case 5:
                send();
                break;
            default:
                break;
            }
        };
    }
    void actInSpy() { s_spy = anyAct(); }
    void actInSlot() { m_slot = anyAct(); }

    // What the gateway does.
    void receive() { m_bus.send(message(std::uint16_t(pick(0x800)), QByteArray(pick(9), 'y'))); }
    void flood() { m_gateway.flood(pick(4) == 0 ? 12000 : 100); }
    void drop() { m_gateway.dropLinks(); }
    void behave() { m_gateway.setFaults({}); }
    void misbehave()
    {
        SSimFaults faults;
        faults.wrongChecksumEvery = pick(3) == 0 ? 3 : 0;
        faults.missingEndEvery = pick(4) == 0 ? 5 : 0;
        faults.garbage = QByteArray(pick(4) == 0 ? 3 : 0, RM_START_OF_FRAME);
        faults.cutAt = pick(3) == 0 ? 1 + pick(9) : 0;
        faults.cutDelayMs = 1;
        faults.mergeCount = 1 + pick(3);
        faults.replyDelayMs = pick(3);
        faults.mute = pick(6) == 0;
        faults.blackHole = pick(8) == 0;
        faults.refuse = pick(8) == 0;
        m_gateway.setFaults(faults);
    }
    void garbage()
    {
        static const std::uint8_t COMMANDS[] = {0x00, 0x01, 0x02, 0x40, 0x41, 0x42, 0x44, 0x47, 0xA4, 0xC0};
        QByteArray bytes;
        for (int frames = pick(4); frames >= 0; --frames) {
            QByteArray payload(pick(40), 0);
            std::generate(payload.begin(), payload.end(), [this] { return char(pick(256)); });
            bytes += frame(COMMANDS[pick(10)], payload);
        }
        bytes[pick(bytes.size())] = pick(2) == 0 ? char(pick(256)) : char(RM_START_OF_FRAME);
        m_gateway.sendRaw(bytes.left(1 + pick(bytes.size())));
    }

    std::mt19937 m_random;
    CSimBus m_bus;
    CSimGateway m_gateway{m_bus};
    std::mutex m_life; ///< held to read and to delete: a host must not delete what another thread reads
    std::unique_ptr<CCanInterface> m_can;
    std::function<void()> m_slot; ///< what the host does in its error slot next
    std::atomic<int> m_taken{0};
    std::atomic<bool> m_stop{false};
    std::thread m_reader;
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QTemporaryDir store(QStringLiteral("/dev/shm/driverFuzz-XXXXXX"));
    qputenv("XDG_CONFIG_HOME", store.path().toLocal8Bit());
    QCommandLineParser options;
    options.addOptions({{QStringLiteral("seed"), {}, QStringLiteral("N")},
                        {QStringLiteral("steps"), {}, QStringLiteral("N"), QStringLiteral("2000")},
                        {QStringLiteral("reader"), {}}});
    options.process(application);
    const unsigned int seed =
        options.isSet(QStringLiteral("seed")) ? options.value(QStringLiteral("seed")).toUInt() : std::random_device()();
    const int steps = options.value(QStringLiteral("steps")).toInt();
    std::printf("driverFuzz --seed %u --steps %d\n", seed, steps);
    std::fflush(stdout);
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext&, const QString& text) {
        if (type == QtFatalMsg) { // the warnings are expected
            std::fprintf(stderr, "%s\n", qPrintable(text));
        }
    });
    DriverFuzz fuzz(seed, options.isSet(QStringLiteral("reader")));
    for (int step = 0; step < steps; ++step) {
        fuzz.step();
    }
    return fuzz.worksAgain() ? 0 : 1;
}

#include "driverFuzz.moc"
