"""python-can as the peers' benchmark measures it: connects to the gateway process at 127.0.0.1 and prints a line of figures
for each thing that it is asked to measure, a figure a round.

    receive      CPU time of a frame that comes in a burst, ns
    send         CPU time of a message, ns
    roundtrip    half of the round trips take less, us
    stall        the same right behind another message

Arguments: the gateway's port, the processor to stay on, the number of rounds, and the things.
"""
import logging
import os
import statistics
import sys
import time

import can
from can.interfaces.socketcand import SocketCanDaemonBus

ID_SWALLOW, ID_ECHO, ID_BURST = 0x100, 0x101, 0x102  # as in wire.h
PATIENCE_S = 5
BURST = 2000
BATCH, BATCHES = 100, 4  # as in links.h and peers.cpp
ROUND_TRIPS = 40
STALL_TRIPS = 5


def message(can_id, data):
    return can.Message(arbitration_id=can_id, data=data, is_extended_id=False)


SWALLOWED = message(ID_SWALLOW, bytes(range(1, 9)))
ECHOED = message(ID_ECHO, bytes(8))


def receive_messages(bus, count):
    """Looks at each, and gives the sum of what they said (lookAt in wire.h)."""
    total = 0
    for _ in range(count):
        received = bus.recv(PATIENCE_S)
        if received is None or received.dlc != 8:
            raise RuntimeError("messages missing")
        total += int.from_bytes(received.data, "little") * 31 + received.arbitration_id
    return total


def receive(bus):
    begin = time.process_time_ns()
    bus.send(message(ID_BURST, BURST.to_bytes(2, "big") + bytes(6)))
    total = receive_messages(bus, BURST)
    cost = time.process_time_ns() - begin
    if total != sum(int.from_bytes(bytes([i & 0xFF] * 8), "little") * 31 + (i & 0x7FF) for i in range(BURST)):
        raise RuntimeError("the messages are not those that the gateway sent")
    return cost / BURST


def send(bus):
    cost = 0
    for _ in range(BATCHES):
        round_trip(bus, 0)  # until the gateway has read everything
        begin = time.process_time_ns()
        for _ in range(BATCH):
            bus.send(SWALLOWED)
        cost += time.process_time_ns() - begin
    return cost / (BATCHES * BATCH)


def round_trip(bus, messages_before):
    begin = time.perf_counter_ns()
    for _ in range(messages_before):
        bus.send(SWALLOWED)
    bus.send(ECHOED)
    receive_messages(bus, 1)
    return (time.perf_counter_ns() - begin) / 1000


def roundtrip(bus):
    return statistics.median(round_trip(bus, 0) for _ in range(ROUND_TRIPS))


def stall(bus):
    return statistics.median(round_trip(bus, 1) for _ in range(STALL_TRIPS))


def main():
    port, processor, rounds = (int(argument) for argument in sys.argv[1:4])
    os.sched_setaffinity(0, {processor})
    logging.getLogger("can").setLevel(logging.ERROR)  # it warns of every message cut by the end of a read
    bus = SocketCanDaemonBus(channel="can0", host="127.0.0.1", port=port)
    for thing in sys.argv[4:]:
        measure = {"receive": receive, "send": send, "roundtrip": roundtrip, "stall": stall}[thing]
        print(*[measure(bus) for _ in range(rounds + 1)][1:])  # the first warms up
    bus.shutdown()


main()
