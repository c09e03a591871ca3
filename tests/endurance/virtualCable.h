#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

/// A network that exists in this process only: network interfaces in private namespaces, and the cable between two of
/// them, which can be pulled, lose packets and hold them up. It needs no more of the kernel than namespaces and TAP
/// interfaces.
namespace vexmor::Endurance
{

/// Takes the calling thread into a network namespace of its own, without a way out of the machine. The first thread of
/// the process must call it before it starts others. False where the system forbids it.
bool enterPrivateNetwork(bool firstThread);

/// A network interface of the calling thread's namespace, whose packets come out of a descriptor.
class CVirtualPort
{
public:
    /// `lastByte` (1 to 9) ends its MAC address, `address` is of a network of 24 bits; with `announce` everybody
    /// on the network is told that this MAC address has it now. Throws std::system_error.
    CVirtualPort(const std::string& name, int lastByte, const std::string& address, bool announce = false);
    ~CVirtualPort();
    CVirtualPort(const CVirtualPort&) = delete;
    CVirtualPort& operator=(const CVirtualPort&) = delete;

    int descriptor() const { return m_descriptor; }
    /// Switches the interface on or off, in the namespace of the calling thread.
    void setUp(bool up) const;

private:
    const std::string m_name;
    int m_descriptor = -1;
};

/// Carries packets between two ports, in a thread of its own.
class CVirtualCable
{
public:
    struct SQuality {
        bool pulled = false;
        double loss = 0; ///< share of the packets, each way
        std::chrono::milliseconds delay{0};
    };

    CVirtualCable();
    ~CVirtualCable();

    /// The ports at its ends; -1: none. Not to be closed while they are plugged in.
    void plug(int near, int far);
    void setQuality(const SQuality& quality);

private:
    using Clock = std::chrono::steady_clock;
    struct SPacket {
        Clock::time_point due;
        std::vector<char> bytes;
    };
    struct SDirection {
        std::deque<SPacket> packets;
        int from = -1;
        int to = -1;
    };

    void run();
    void carry(SDirection& direction);

    std::mutex m_mutex; ///< of all but the flag
    SDirection m_directions[2];
    SQuality m_quality;
    std::mt19937 m_random{1};
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

} // namespace vexmor::Endurance
