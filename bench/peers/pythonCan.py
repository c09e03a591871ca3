"""python-can as the throughput benchmark measures it: connects to the gateway process at 127.0.0.1 and does what it reads
from its standard input, a line a task, answering each with a line of times in ns.

    receive BURSTS FRAMES      CPU and wall time a frame
    send BATCHES MESSAGES      CPU and wall time a message
    roundtrip COUNT BEFORE     wall time of each, with so many messages sent before it that are not answered

Arguments: the gateway's port, and the processor to stay on.
"""
import logging
import os
import sys
import time

import can
from can.interfaces.socketcand import SocketCanDaemonBus

ID_SWALLOW, ID_ECHO, ID_BURST = 0x100, 0x101, 0x102  # as in wire.h
PATIENCE_S = 5


def message(can_id, data):
    return can.Message(arbitration_id=can_id, data=data, is_extended_id=False)


SWALLOWED = message(ID_SWALLOW, bytes(range(1, 9)))
ECHOED = message(ID_ECHO, bytes(8))


def receive_messages(bus, count):
    for _ in range(count):
        if bus.recv(PATIENCE_S) is None:
            raise RuntimeError("messages missing")


def round_trip(bus):
    bus.send(ECHOED)
    receive_messages(bus, 1)


def times(action, *arguments):
    wall, cpu = time.perf_counter_ns(), time.process_time_ns()
    action(*arguments)
    return time.process_time_ns() - cpu, time.perf_counter_ns() - wall


def receive(bus, bursts, frames):
    def one_burst():
        bus.send(message(ID_BURST, frames.to_bytes(2, "big") + bytes(6)))
        receive_messages(bus, frames)

    totals = [times(one_burst) for _ in range(bursts)]
    return [sum(column) / (bursts * frames) for column in zip(*totals)]


def send(bus, batches, messages):
    def one_batch():
        for _ in range(messages):
            bus.send(SWALLOWED)

    totals = []
    for _ in range(batches):
        round_trip(bus)  # until the gateway has read everything
        totals.append(times(one_batch))
    return [sum(column) / (batches * messages) for column in zip(*totals)]


def roundtrip(bus, count, before):
    def one():
        for _ in range(before):
            bus.send(SWALLOWED)
        round_trip(bus)

    return [times(one)[1] for _ in range(count)]


def main():
    port, processor = (int(argument) for argument in sys.argv[1:])
    os.sched_setaffinity(0, {processor})
    logging.getLogger("can").setLevel(logging.ERROR)  # it warns of every message cut by the end of a read
    bus = SocketCanDaemonBus(channel="can0", host="127.0.0.1", port=port)
    for line in sys.stdin:
        task, *arguments = line.split()
        result = {"receive": receive, "send": send, "roundtrip": roundtrip}[task](bus, *map(int, arguments))
        print(*result, flush=True)
    bus.shutdown()


main()
