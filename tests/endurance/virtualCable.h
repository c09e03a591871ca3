#pragma once

#include "bench/processes.h"

#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <mutex>
#include <random>
#include <stdexcept>
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
inline bool enterPrivateNetwork(bool firstThread)
{
    const uid_t user = getuid();
    if (unshare(firstThread ? CLONE_NEWUSER | CLONE_NEWNET : CLONE_NEWNET) != 0) {
        return false;
    }
    // As its root, so that the programs that it starts may set up the network.
    return !firstThread || (std::ofstream("/proc/self/uid_map") << "0 " << user << " 1" << std::flush).good();
}

/// A network interface of the calling thread's namespace, whose packets come out of a descriptor.
class CVirtualPort
{
public:
    /// `lastByte` (1 to 9) ends its MAC address, `address` is of a network of 24 bits; with `announce` it is announced
    /// to the network that this MAC address has it now. Throws std::runtime_error.
    CVirtualPort(const std::string& name, int lastByte, const std::string& address, bool announce = false)
        : m_name(name), m_descriptor(::open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC))
    {
        if (announce) {
            std::ofstream setting("/proc/sys/net/ipv4/conf/all/arp_notify");
            Bench::check((setting << 1 << std::flush).good(), "arp_notify");
        }
        ifreq request{};
        name.copy(request.ifr_name, IFNAMSIZ - 1);
        request.ifr_flags = IFF_TAP | IFF_NO_PI;
        Bench::check(ioctl(m_descriptor, TUNSETIFF, &request) == 0, "/dev/net/tun");
        ip("link set " + name + " address 02:00:00:00:00:0" + std::to_string(lastByte));
        ip("address add " + address + "/24 dev " + name);
        setUp(true);
    }
    ~CVirtualPort() { ::close(m_descriptor); }
    CVirtualPort(const CVirtualPort&) = delete;
    CVirtualPort& operator=(const CVirtualPort&) = delete;

    int descriptor() const { return m_descriptor; }
    /// Switches the interface on or off, in the namespace of the calling thread.
    void setUp(bool up) const { ip("link set " + m_name + (up ? " up" : " down")); }

private:
    /// Runs a command of iproute2 in the calling thread's namespace.
    static void ip(const std::string& command)
    {
        if (std::system(("ip " + command).c_str()) != 0) {
            throw std::runtime_error("ip " + command);
        }
    }
    const std::string m_name;
    const int m_descriptor;
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

    ~CVirtualCable()
    {
        m_stop = true;
        m_thread.join();
    }
    /// The ports at its ends; -1: none. Not to be closed while they are plugged in.
    void plug(int near, int far)
    {
        const std::lock_guard lock(m_mutex);
        m_directions[0] = {{}, near, far};
        m_directions[1] = {{}, far, near};
    }
    void setQuality(const SQuality& quality)
    {
        const std::lock_guard lock(m_mutex);
        m_quality = quality;
    }

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

    void run()
    {
        for (; !m_stop; std::this_thread::sleep_for(std::chrono::microseconds(200))) { // without the lock
            const std::lock_guard lock(m_mutex);
            carry(m_directions[0]);
            carry(m_directions[1]);
        }
    }
    void carry(SDirection& direction)
    {
        if (direction.from < 0) {
            return;
        }
        char bytes[2048];
        for (ssize_t size = 0; (size = read(direction.from, bytes, sizeof bytes)) > 0;) {
            const bool isLost = std::uniform_real_distribution<>(0, 1)(m_random) < m_quality.loss;
            if (direction.to >= 0 && !m_quality.pulled && !isLost) {
                direction.packets.push_back({Clock::now() + m_quality.delay, {bytes, bytes + size}});
            }
        }
        while (!direction.packets.empty() && direction.packets.front().due <= Clock::now()) {
            const std::vector<char>& packet = direction.packets.front().bytes;
            // A packet that the interface does not take, because it is off, is lost.
            [[maybe_unused]] const ssize_t written = write(direction.to, packet.data(), packet.size());
            direction.packets.pop_front();
        }
    }

    std::mutex m_mutex; ///< of all but the flag
    SDirection m_directions[2];
    SQuality m_quality;
    std::mt19937 m_random{1};
    std::atomic<bool> m_stop{false};
    std::thread m_thread{[this] { run(); }};
};

} // namespace vexmor::Endurance
