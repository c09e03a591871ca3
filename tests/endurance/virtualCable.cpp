#include "tests/endurance/virtualCable.h"

#include "bench/processes.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>

namespace vexmor::Endurance
{
using Bench::check;

namespace
{
constexpr std::size_t MAX_PACKET = 2048;

ifreq requestFor(const char* name)
{
    ifreq request{};
    std::strncpy(request.ifr_name, name, IFNAMSIZ - 1);
    return request;
}

/// Asks the kernel something about an interface of this thread's namespace.
void control(unsigned long command, ifreq& request, const char* what)
{
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int result = ioctl(socket, command, &request);
    ::close(socket);
    check(result == 0, what);
}

void setAddress(const char* name, unsigned long command, const char* address)
{
    ifreq request = requestFor(name);
    auto& to = reinterpret_cast<sockaddr_in&>(request.ifr_addr);
    to.sin_family = AF_INET;
    inet_pton(AF_INET, address, &to.sin_addr);
    control(command, request, address);
}
} // namespace

bool enterPrivateNetwork(bool firstThread)
{
    return unshare(firstThread ? CLONE_NEWUSER | CLONE_NEWNET : CLONE_NEWNET) == 0;
}

CVirtualPort::CVirtualPort(const char* name, std::uint8_t lastByte, const char* address, bool announce) : m_name(name)
{
    if (announce) {
        std::ofstream setting("/proc/sys/net/ipv4/conf/all/arp_notify");
        check((setting << 1 << std::flush).good(), "arp_notify");
    }
    m_descriptor = open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC);
    check(m_descriptor >= 0, "/dev/net/tun");
    ifreq request = requestFor(name);
    request.ifr_flags = IFF_TAP | IFF_NO_PI;
    check(ioctl(m_descriptor, TUNSETIFF, &request) == 0, "TUNSETIFF");
    request = requestFor(name);
    request.ifr_hwaddr.sa_family = ARPHRD_ETHER;
    const unsigned char mac[] = {0x02, 0, 0, 0, 0, lastByte};
    std::memcpy(request.ifr_hwaddr.sa_data, mac, sizeof mac);
    control(SIOCSIFHWADDR, request, "SIOCSIFHWADDR");
    setAddress(name, SIOCSIFADDR, address);
    setAddress(name, SIOCSIFNETMASK, "255.255.255.0");
    setUp(true);
}

CVirtualPort::~CVirtualPort()
{
    ::close(m_descriptor);
}

void CVirtualPort::setUp(bool up) const
{
    ifreq request = requestFor(m_name);
    request.ifr_flags = static_cast<short>(up ? IFF_UP | IFF_RUNNING : 0);
    control(SIOCSIFFLAGS, request, "SIOCSIFFLAGS");
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
