#pragma once

#include "bench/processes.h"

#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <random>
#include <thread>

/// Network interfaces in private namespaces, and the cable between two of them, which can lose packets.
/// The kernel must support namespaces and TAP interfaces.
namespace vexmor::Endurance
{

/// Runs a command of iproute2 in the calling thread's network namespace. Throws std::runtime_error.
inline void ip(const std::string& command)
{
    if (std::system(("ip " + command).c_str()) != 0) {
        throw std::runtime_error("ip " + command);
    }
}

/// A network interface in the calling thread's namespace, whose packets are read and written with a descriptor.
class CVirtualPort
{
public:
    /// `lastByte` (1 to 9) ends its MAC address, which it announces to the network; `address` is of a network of 24
    /// bits. Throws std::runtime_error.
    CVirtualPort(const std::string& name, int lastByte, const std::string& address)
        : m_descriptor(::open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC))
    {
        std::ofstream announce("/proc/sys/net/ipv4/conf/all/arp_notify");
        Bench::check((announce << 1 << std::flush).good(), "arp_notify");
        ifreq request{};
        name.copy(request.ifr_name, IFNAMSIZ - 1);
        request.ifr_flags = IFF_TAP | IFF_NO_PI;
        Bench::check(ioctl(m_descriptor, TUNSETIFF, &request) == 0, "/dev/net/tun");
        ip("link set " + name + " address 02:00:00:00:00:0" + std::to_string(lastByte));
        ip("address add " + address + "/24 dev " + name);
        ip("link set " + name + " up");
    }
    ~CVirtualPort() { ::close(m_descriptor); }
    CVirtualPort(const CVirtualPort&) = delete;
    CVirtualPort& operator=(const CVirtualPort&) = delete;

    int descriptor() const { return m_descriptor; }

private:
    const int m_descriptor;
};

/// Carries packets between two ports, in a thread of its own.
class CVirtualCable
{
public:
    ~CVirtualCable()
    {
        m_stop = true;
        m_thread.join();
    }
    /// Connects the ports at its ends; -1: none. They must not be closed while they are connected.
    void plug(int near, int far)
    {
        const std::lock_guard lock(m_mutex);
        m_near = near;
        m_far = far;
    }
    /// Sets the share of the packets that are lost, each way.
    void setLoss(double loss) { m_loss = loss; }

private:
    void run()
    {
        for (; !m_stop; std::this_thread::sleep_for(std::chrono::microseconds(200))) { // without the lock
            const std::lock_guard lock(m_mutex);
            carry(m_near, m_far);
            carry(m_far, m_near);
        }
    }
    void carry(int from, int to)
    {
        char bytes[2048];
        for (ssize_t size = 0; (size = read(from, bytes, sizeof bytes)) > 0;) {
            if (std::uniform_real_distribution<>(0, 1)(m_random) >= m_loss) {
                Bench::check(write(to, bytes, static_cast<std::size_t>(size)) == size, "write");
            }
        }
    }

    std::mutex m_mutex; ///< Of the ports.
    int m_near = -1;
    int m_far = -1;
    std::atomic<double> m_loss{0};
    std::mt19937 m_random{1};
    std::atomic<bool> m_stop{false};
    std::thread m_thread{[this] { run(); }};
};

} // namespace vexmor::Endurance
