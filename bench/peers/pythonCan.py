"""python-can as the peers' benchmark measures it: connects to the gateway process at 127.0.0.1 and prints a line of figures
for each of the things named, a figure a round: receive and send in ns of the processor a frame, trip and stall (right behind
another message) in us on the wall. Arguments: the gateway's port, the processor to stay on, the rounds, the things.
"""
import logging
import os
import statistics
import sys
import time

import can
from can.interfaces.socketcand import SocketCanDaemonBus

ID_SWALLOW, ID_ECHO, ID_BURST = 0x100, 0x101, 0x102  # as in wire.h
BURST, MESSAGES, TRIPS, STALLS = 2000, 400, 40, 5  # of a round


def send(bus, can_id, data):
    bus.send(can.Message(arbitration_id=can_id, data=data, is_extended_id=False))


def look(can_id, data):  # lookAt in wire.h
    return int.from_bytes(data, "little") * 31 + can_id


BURST_SUM = sum(look(i & 0x7FF, bytes([i & 0xFF] * 8)) for i in range(BURST))


def expect(bus, count, expected):
    """Waits for messages and looks at each."""
    total = 0
    for _ in range(count):
        received = bus.recv(5)
        total += look(received.arbitration_id, received.data[:received.dlc])
    if total != expected:
        raise RuntimeError("the messages are not those that the gateway sent")


def echo(bus):
    send(bus, ID_ECHO, bytes(8))
    expect(bus, 1, ID_ECHO)


def receive_burst(bus):
    begin = time.process_time_ns()
    send(bus, ID_BURST, BURST.to_bytes(2, "big") + bytes(6))
    expect(bus, BURST, BURST_SUM)
    return (time.process_time_ns() - begin) / BURST


def send_batch(bus):
    begin = time.process_time_ns()
    for _ in range(MESSAGES):
        send(bus, ID_SWALLOW, bytes(range(1, 9)))
    cost = time.process_time_ns() - begin
    echo(bus)  # the gateway has read everything
    return cost / MESSAGES


def trip(bus, before=0, count=TRIPS):
    times = []
    for _ in range(count):
        begin = time.perf_counter_ns()
        for _ in range(before):
            send(bus, ID_SWALLOW, bytes(range(1, 9)))
        echo(bus)
        times.append((time.perf_counter_ns() - begin) / 1000)
    return statistics.median(times)


def main():
    port, processor, rounds = (int(argument) for argument in sys.argv[1:4])
    os.sched_setaffinity(0, {processor})
    logging.getLogger("can").setLevel(logging.ERROR)  # it warns of every message cut by the end of a read
    bus = SocketCanDaemonBus(channel="can0", host="127.0.0.1", port=port)
    things = {"receive": receive_burst, "send": send_batch, "trip": trip, "stall": lambda bus: trip(bus, 1, STALLS)}
    for thing in sys.argv[4:]:
        print(*[things[thing](bus) for _ in range(rounds + 1)][1:])  # the first warms up
    bus.shutdown()


main()
