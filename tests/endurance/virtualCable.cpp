#include "tests/endurance/virtualCable.h"

#include "bench/processes.h"

#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace vexmor::Endurance
{
using Bench::check;

namespace
{
constexpr std::size_t MAX_PACKET = 2048;

/// Runs a command of iproute2 in the calling thread's namespace.
void ip(const std::string& command)
{
    if (std::system(("ip " + command).c_str()) != 0) {
        throw std::runtime_error("ip " + command);
    }
}
} // namespace

bool enterPrivateNetwork(bool firstThread)
{
    const uid_t user = getuid();
    if (unshare(firstThread ? CLONE_NEWUSER | CLONE_NEWNET : CLONE_NEWNET) != 0) {
        return false;
    }
    // As its root, so that the programs that it starts may set up the network.
    return !firstThread || (std::ofstream("/proc/self/uid_map") << "0 " << user << " 1" << std::flush).good();
}

CVirtualPort::CVirtualPort(const std::string& name, int lastByte, const std::string& address, bool announce)
    : m_name(name)
{
    if (announce) {
        std::ofstream setting("/proc/sys/net/ipv4/conf/all/arp_notify");
        check((setting << 1 << std::flush).good(), "arp_notify");
    }
    m_descriptor = open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC);
    check(m_descriptor >= 0, "/dev/net/tun");
    ifreq request{};
    name.copy(request.ifr_name, IFNAMSIZ - 1);
    request.ifr_flags = IFF_TAP | IFF_NO_PI;
    check(ioctl(m_descriptor, TUNSETIFF, &request) == 0, "TUNSETIFF");
    ip("link set " + name + " address 02:00:00:00:00:0" + std::to_string(lastByte));
    ip("address add " + address + "/24 dev " + name);
    setUp(true);
}

CVirtualPort::~CVirtualPort()
{
    ::close(m_descriptor);
}

void CVirtualPort::setUp(bool up) const
{
    ip("link set " + m_name + (up ? " up" : " down"));
}

CVirtualCable::CVirtualCable() : m_thread([this] { run(); }) {}

CVirtualCable::~CVirtualCable()
{
    m_stop = true;
    m_thread.join();
}

void CVirtualCable::plug(int near, int far)
{
    const std::lock_guard lock(m_mutex);
    m_directions[0] = {{}, near, far};
    m_directions[1] = {{}, far, near};
}

void CVirtualCable::setQuality(const SQuality& quality)
{
    const std::lock_guard lock(m_mutex);
    m_quality = quality;
}

void CVirtualCable::run()
{
    while (!m_stop) {
        {
            const std::lock_guard lock(m_mutex);
            carry(m_directions[0]);
            carry(m_directions[1]);
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

void CVirtualCable::carry(SDirection& direction)
{
    if (direction.from < 0) {
        return;
    }
    char bytes[MAX_PACKET];
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

} // namespace vexmor::Endurance
