// A host that performs random operations on an interface, while the gateway acts at random, too; the sanitizers check
// memory and threads. Every result code must be one that the operation may return. Messages that are read and shown
// were sent since the opening and are in order. At the end, a message passes in each direction.
//
//     driverFuzz [--seed N] [--steps N] [--reader]
//
// The same seed gives the same steps. With --reader, another thread reads the messages, for the thread sanitizer.
#include "t93Fixture.h"

#include <random>
#include <thread>

using namespace vexmor::Test;

namespace
{
enum EPlace { eSpy, eSlot };
std::function<void()> s_acts[2]; ///< Action of the host at its next call in each place.

void actAt(EPlace place)
{
    if (s_acts[place]) {
        std::exchange(s_acts[place], nullptr)();
    }
}

void expect(const char* operation, int code, std::initializer_list<int> allowed)
{
    if (std::find(allowed.begin(), allowed.end(), code) == allowed.end()) {
        qFatal("%s gave %d", operation, code);
    }
}

/// Requires that messages that this program numbered are in order, and that their numbers are greater than `after`.
void expectInOrder(const char* place, const CCanMessage& message, quint32& last, quint32 after = 0)
{
    if (message.length() == 8 && std::memcmp(message.data(), "mark", 4) == 0) {
        const auto number = qFromBigEndian<quint32>(message.data() + 4);
        expect(place, number > std::max(std::exchange(last, number), after) ? 1 : 0, {1});
    }
}

int spy(const CCanInterface&, bool sending, const CCanMessage& message)
{
    static quint32 s_last[2] = {};
    const CCanMessage before = message;
    expectInOrder("the order in the spy handler", message, s_last[sending ? 1 : 0]);
    actAt(eSpy);
    expect("the message behind the act", before == message ? 1 : 0, {1});
    return 0;
}
} // namespace

class DriverFuzz : public QObject
{
    Q_OBJECT

public:
    explicit DriverFuzz(unsigned int seed) : m_random(seed)
    {
        listenOn(m_gateway);
        m_gateway.setMaxClients(2); // a reopened link may arrive before the old one is closed
    }

    void step()
    {
        using Act = void (DriverFuzz::*)();
        // Each action is chosen by the numbers below its own.
        static const std::map<int, Act> ACTS = {
            {30, &DriverFuzz::events}, {50, &DriverFuzz::send},      {62, &DriverFuzz::receive},
            {72, &DriverFuzz::read},   {82, &DriverFuzz::misbehave}, {90, &DriverFuzz::garbage},
            {96, &DriverFuzz::open},   {107, &DriverFuzz::arm},      {112, &DriverFuzz::reset},
            {116, &DriverFuzz::load},  {120, &DriverFuzz::behave},   {123, &DriverFuzz::close},
            {126, &DriverFuzz::drop},  {128, &DriverFuzz::clone},    {129, &DriverFuzz::renew}};
        if (!m_can) {
            renew();
        }
        (this->*ACTS.upper_bound(pick(129))->second)();
    }

    /// Returns whether an interface works with a gateway without faults, whatever happened before.
    bool worksAgain()
    {
        s_acts[eSpy] = s_acts[eSlot] = nullptr;
        QCoreApplication::removePostedEvents(this, QEvent::MetaCall); // actions that wait in the event loop
        m_can.reset();
        behave();
        drop();
        const auto can = makeInterface(m_gateway.port());
        const QSignalSpy atGateway(&m_gateway, &CSimGateway::messageReceived);
        return QTest::qWaitFor([&] { return can->openCommunication() <= RC_ALREADY_OPENED; }) &&
               can->writeMessage(message(0x123)) == RC_OK && QTest::qWaitFor([&] {
                   m_bus.send(message(0x321));
                   return !unread(*can).isEmpty() && !atGateway.isEmpty();
               });
    }

    void read() // called from any thread
    {
        const std::lock_guard lock(m_life);
        const quint32 before = m_numberAtOpening;
        int code = m_can ? RC_OK : RC_NOT_OPENED;
        for (CCanMessage next; code == RC_OK && (code = m_can->readMessage(next)) == RC_OK;) {
            expect("a message", next.length() <= 8 ? next.id().value() >> 11 : -1, {0});
            expectInOrder("the order of what is read", next, m_lastRead, before);
        }
        expect("read", code, {2, 4});
    }

private Q_SLOTS:
    void onInterfaceError(int error)
    {
        expect("interfaceError", error, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11});
        actAt(eSlot);
    }

private:
    int pick(int count) { return static_cast<int>(m_random() % static_cast<unsigned int>(count)); }

    // Actions of the host. Each of them may have deleted the interface when it returns.
    void events() { QCoreApplication::processEvents(QEventLoop::AllEvents, 1 + pick(5)); }
    void open()
    {
        CCanInterface* const opened = m_can.get();
        const quint32 number = m_number;
        const int code = opened->openCommunication();
        m_numberAtOpening = code == RC_OK ? number : m_numberAtOpening.load();
        expect("open", code, {0, 1, 103, 105});
        expect("isOpened", m_can.get() == opened && opened->isOpened() ? 1 : 0, {m_can.get() == opened && code <= 1});
    }
    void close() { expect("close", m_can->closeCommunication(), {0}); }
    void reset() { expect("reset", m_can->resetCommunication(pick(2)), {0, 2, 109}); }
    void send()
    {
        CCanInterface* const sender = m_can.get();
        const bool wasOpen = sender->isOpened();
        const int code = sender->writeMessage(anyMessage());
        const bool isOpen = m_can.get() == sender && sender->isOpened();
        isOpen ? expect("send", code, {0, 108, 109}) : expect("send, and closed", code, {wasOpen ? 102 : 2});
    }
    void load()
    {
        static const char* const PROTOCOLS[] = {"TCP", "TCP", "UDP", "UDP", "NA", "tcp"};
        QSettings settings;
        settings.setValue("CanInterfaces/Protocol"_s, QLatin1String(PROTOCOLS[pick(6)]));
        settings.setValue("CanInterfaces/BusloadPollTime"_s, pick(20));
        settings.setValue("CanInterfaces/UdpBindAnyIp"_s, pick(2));
        expect("load", m_can->loadSettings(QString()), {0, 8});
    }
    void clone() { replace(std::unique_ptr<CCanInterface>(m_can->clone())); }
    void renew() { replace(makeInterface(m_gateway.port(), static_cast<Protocol>(pick(2)))); }
    void remove() { replace(nullptr); }
    void reopen() { close(), open(); }
    void replace(std::unique_ptr<CCanInterface> next)
    {
        if (next) {
            connect(next.get(), SIGNAL(interfaceError(int)), this, SLOT(onInterfaceError(int)));
            next->setSpyHandler(pick(4) == 0 ? nullptr : spy); // without a handler, messages are published together
        }
        const std::lock_guard lock(m_life);
        m_can.swap(next); // the old one is deleted after the unlock, when it is not reachable any more
    }
    void arm()
    {
        static constexpr void (DriverFuzz::*ACTS[])() = {&DriverFuzz::close, &DriverFuzz::reopen, &DriverFuzz::remove,
                                                         &DriverFuzz::reset, &DriverFuzz::events, &DriverFuzz::send};
        const auto act = [this, chosen = ACTS[pick(6)]] {
            if (m_can) {
                (this->*chosen)();
            }
        };
        if (const int place = pick(3); place <= eSlot) {
            s_acts[place] = act;
        } else {
            QMetaObject::invokeMethod(this, act, Qt::QueuedConnection);
        }
    }

    // Actions of the gateway.
    void receive()
    {
        static constexpr int FLOODS[] = {12000, 100, 100, 100}; // the first one fills the queue
        const int flood = pick(6) == 0 ? FLOODS[pick(4)] : 0;
        for (int left = flood + pick(4); left >= 0; --left) { // the host often reads several at once
            m_bus.send(left < flood ? numbered() : anyMessage());
        }
    }
    void drop() { m_gateway.dropLinks(); }
    void behave() { m_gateway.setFaults({}); }
    void misbehave()
    {
        const QByteArray garbage(pick(4) == 0 ? 3 : 0, char(RM_START_OF_FRAME));
        m_gateway.setFaults({pick(3) == 0 ? 3 : 0, pick(4) == 0 ? 5 : 0, garbage, pick(3) == 0 ? 1 + pick(9) : 0, 1,
                             1 + pick(3), pick(3), pick(6) == 0, pick(8) == 0, pick(8) == 0});
    }
    void garbage()
    {
        static constexpr std::uint8_t COMMANDS[] = {0x00, 0x01, 0x02, 0x40, 0x41, 0x42, 0x44, 0x47, 0xA4, 0xC0};
        QByteArray bytes(pick(40), 0);
        std::generate(bytes.begin(), bytes.end(), [this] { return char(pick(256)); });
        bytes = frame(COMMANDS[pick(10)], bytes);
        bytes[pick(bytes.size())] = pick(2) == 0 ? char(pick(256)) : char(RM_START_OF_FRAME);
        m_gateway.sendRaw(bytes.left(1 + pick(2 * bytes.size())));
    }
    CCanMessage numbered()
    {
        return message(1, "mark" + QByteArray::fromHex(QByteArray::number(++m_number, 16).rightJustified(8, '0')));
    }
    CCanMessage anyMessage()
    {
        return pick(2) == 0 ? numbered() : message(std::uint16_t(pick(0x800)), QByteArray(pick(9), 'x'));
    }

    std::mt19937 m_random;
    CSimBus m_bus;
    CSimGateway m_gateway{m_bus};
    /// Held while reading and replacing: a host must not delete an interface from which another thread reads.
    std::mutex m_life;
    std::unique_ptr<CCanInterface> m_can;
    quint32 m_number = 0; ///< Number of the last numbered message.
    std::atomic<quint32> m_numberAtOpening{0};
    quint32 m_lastRead = 0;
};

int main(int argc, char** argv)
{
    qputenv("QT_LOGGING_RULES", "default.warning=false"); // warnings are expected
    QCoreApplication application(argc, argv);
    const QTemporaryDir store("/dev/shm/driverFuzz-XXXXXX"_s); // in memory: storing waits for the disk
    qputenv("XDG_CONFIG_HOME", store.path().toLocal8Bit());
    QCommandLineParser options;
    options.addOptions({{"seed"_s, {}, "N"_s, QString::number(std::random_device()())},
                        {"steps"_s, {}, "N"_s, "5000"_s},
                        {"reader"_s, {}}});
    options.process(application);
    const unsigned int seed = options.value("seed"_s).toUInt();
    std::fprintf(stderr, "driverFuzz --seed %u\n", seed);
    DriverFuzz fuzz(seed);
    std::atomic<bool> stop{!options.isSet("reader"_s)};
    std::thread reader([&] {
        for (; !stop; std::this_thread::yield()) {
            fuzz.read();
        }
    });
    for (int left = options.value("steps"_s).toInt(); left > 0; --left) {
        fuzz.step();
    }
    stop = true;
    reader.join();
    return fuzz.worksAgain() ? 0 : 1;
}

#include "driverFuzz.moc"
