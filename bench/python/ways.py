# SPDX-License-Identifier: MIT
"""One way to get add(2, 40) answered, or another call, in one process: prints the median of a call in microseconds.

usage: ways.py WAY CALLS EXAMPLES      EXAMPLES: the folder with adder and tour
A way yields a function that makes one call. ways.py serve-NAME is the other process of a way."""
import contextlib
import os
import subprocess
import sys
import threading
import time

examples = ""
WARM = 1000
MANY = [0.5 + 1.25 * i for i in range(1000)]  # as bench/python/guide.c has them


def add(a, b):
    return a + b


# ---- The package -----------------------------------------------------------------------------------------------------


@contextlib.contextmanager
def host(module="adder", **options):
    import kahost

    with kahost.open(f"{examples}/{module}", transport=options.pop("transport", "signals"), **options) as opened:
        yield opened


@contextlib.contextmanager
def package(**options):
    with host(**options) as m:
        assert m.add(2, 40).sum == 42
        yield lambda: m.add(2, 40)


def package_fast():
    return package(transport="fast")


@contextlib.contextmanager
def package_beside_idle():
    for _ in range(4):
        threading.Thread(target=threading.Event().wait, daemon=True).start()
    with package() as call:
        yield call


@contextlib.contextmanager
def package_callback():
    with host("tour", callback=lambda value: value) as m:
        assert m.ask(7).answer == 7
        yield lambda: m.ask(7)


@contextlib.contextmanager
def package_total():
    ten = list(range(1, 11))
    with host("tour") as m:
        assert m.total(ten).sum == 55
        yield lambda: m.total(ten)


@contextlib.contextmanager
def package_doubles():
    import array

    values = array.array("d", MANY)
    with host("tour") as m:
        assert m.scale(1, values).values == values
        yield lambda: m.scale(1, values)


@contextlib.contextmanager
def package_decimals():
    from decimal import Decimal

    values = [Decimal(str(d)) for d in MANY]
    with host("tour") as m:
        assert m.scale(1, values).values == values
        yield lambda: m.scale(1, values)


@contextlib.contextmanager
def decimals_of_floats():
    from decimal import Decimal

    yield lambda: [Decimal(str(d)) for d in MANY]


@contextlib.contextmanager
def pool():
    import kahost

    with kahost.Pool(f"{examples}/adder", hosts=4, transport="signals") as executor:
        assert executor.submit("add", 2, 40).result().sum == 42
        yield lambda: executor.submit("add", 2, 40).result()


# Awaits are timed inside one run of the loop.
async def aio():
    with host() as m:
        function = m.add
        assert (await function.aio(2, 40)).sum == 42
        return await awaited(lambda: function.aio(2, 40))


async def asyncio_socket():
    """A bare round trip: a process of its own sends back what it gets."""
    import asyncio
    import socket

    near, far = socket.socketpair()
    with near, far, subprocess.Popen(["cat"], stdin=far, stdout=far) as echo:
        far.close()
        near.setblocking(False)
        loop = asyncio.get_running_loop()

        async def trip():
            await loop.sock_sendall(near, b"2 40 0.\n")
            return await loop.sock_recv(near, 64)

        assert await trip() == b"2 40 0.\n"
        result = await awaited(trip)
        near.shutdown(socket.SHUT_WR)
        echo.wait()
        return result


# ---- What else there is ----------------------------------------------------------------------------------------------


@contextlib.contextmanager
def server(name):
    """The other process, and what it says when it is ready."""
    with subprocess.Popen(
        [sys.executable, __file__, f"serve-{name}"], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True
    ) as process:
        try:
            yield process, process.stdout.readline().strip()
        finally:
            process.kill()


@contextlib.contextmanager
def json_lines():
    import json

    with server("json") as (process, _):
        to, back = process.stdin, process.stdout

        def call():
            to.write(json.dumps(["add", 2, 40]) + "\n")
            to.flush()
            return json.loads(back.readline())

        assert call() == 42
        yield call


def serve_json():
    import json

    print("ready", flush=True)
    for line in sys.stdin:
        name, *arguments = json.loads(line)
        print(json.dumps({"add": add}[name](*arguments)), flush=True)


@contextlib.contextmanager
def pipe():
    import multiprocessing

    near, far = multiprocessing.Pipe()
    process = multiprocessing.Process(target=answer_pipe, args=(far,), daemon=True)
    process.start()

    def call():
        near.send((2, 40))
        return near.recv()

    assert call() == 42
    yield call
    near.send(None)
    process.join()


def answer_pipe(end):
    while (arguments := end.recv()) is not None:
        end.send(add(*arguments))


@contextlib.contextmanager
def process_pool():
    import concurrent.futures

    with concurrent.futures.ProcessPoolExecutor(4) as executor:
        assert executor.submit(add, 2, 40).result() == 42
        yield lambda: executor.submit(add, 2, 40).result()


# The next three as their own quick starts have them.
@contextlib.contextmanager
def rpyc_way():
    import rpyc

    with server("rpyc") as (_, port), contextlib.closing(rpyc.connect("127.0.0.1", int(port))) as connection:
        function = connection.root.add
        assert function(2, 40) == 42
        yield lambda: function(2, 40)


def serve_rpyc():
    import rpyc
    import rpyc.utils.server

    class Adder(rpyc.Service):
        exposed_add = staticmethod(add)

    served = rpyc.utils.server.ThreadedServer(Adder, "127.0.0.1")
    served._listen()
    print(served.port, flush=True)
    served.start()


@contextlib.contextmanager
def grpc_way():
    import struct

    import grpc

    with server("grpc") as (_, port), grpc.insecure_channel(f"127.0.0.1:{port}") as channel:
        two, one = struct.Struct("<ii"), struct.Struct("<i")
        function = channel.unary_unary(
            "/Adder/Add", request_serializer=lambda pair: two.pack(*pair), response_deserializer=one.unpack
        )
        assert function((2, 40), wait_for_ready=True)[0] == 42
        yield lambda: function((2, 40))[0]


def serve_grpc():
    import struct
    from concurrent.futures import ThreadPoolExecutor

    import grpc

    two, one = struct.Struct("<ii"), struct.Struct("<i")
    method = grpc.unary_unary_rpc_method_handler(
        lambda pair, _: add(*pair), request_deserializer=two.unpack, response_serializer=one.pack
    )
    served = grpc.server(ThreadPoolExecutor(10))
    served.add_generic_rpc_handlers((grpc.method_handlers_generic_handler("Adder", {"Add": method}),))
    port = served.add_insecure_port("127.0.0.1:0")
    served.start()
    print(port, flush=True)
    served.wait_for_termination()


@contextlib.contextmanager
def xmlrpc_way():
    import xmlrpc.client

    with server("xmlrpc") as (_, port):
        with xmlrpc.client.ServerProxy(f"http://127.0.0.1:{port}") as proxy:
            assert proxy.add(2, 40) == 42
            yield lambda: proxy.add(2, 40)


def serve_xmlrpc():
    from xmlrpc.server import SimpleXMLRPCServer

    with SimpleXMLRPCServer(("127.0.0.1", 0), logRequests=False) as served:
        served.register_function(add)
        print(served.server_address[1], flush=True)
        served.serve_forever()


# ---- Measuring -------------------------------------------------------------------------------------------------------

WAYS = {
    "package": package,
    "package fast": package_fast,
    "package beside idle": package_beside_idle,
    "package callback": package_callback,
    "package total": package_total,
    "package doubles": package_doubles,
    "package decimals": package_decimals,
    "decimals of floats": decimals_of_floats,
    "pool": pool,
    "json": json_lines,
    "pipe": pipe,
    "process pool": process_pool,
    "rpyc": rpyc_way,
    "grpc": grpc_way,
    "xmlrpc": xmlrpc_way,
}
AWAITED = {"aio": aio, "asyncio": asyncio_socket}
SERVERS = {
    "serve-json": serve_json,
    "serve-rpyc": serve_rpyc,
    "serve-grpc": serve_grpc,
    "serve-xmlrpc": serve_xmlrpc,
}


def median_us(times):
    return sorted(times)[len(times) // 2] / 1e3


def measured(call, calls):
    for _ in range(min(WARM, calls)):
        call()
    times = []
    for _ in range(calls):
        start = time.perf_counter_ns()
        call()
        times.append(time.perf_counter_ns() - start)
    return median_us(times)


async def awaited(call):
    for _ in range(min(WARM, calls)):
        await call()
    times = []
    for _ in range(calls):
        start = time.perf_counter_ns()
        await call()
        times.append(time.perf_counter_ns() - start)
    return median_us(times)


def imported():
    """Milliseconds, and that nothing heavy comes with it."""
    start = time.perf_counter_ns()
    import kahost

    took = time.perf_counter_ns() - start
    heavy = {"numpy", "asyncio", "distributed"} & set(sys.modules)
    assert not heavy and kahost, heavy
    return took / 1e3


if __name__ == "__main__":
    way = sys.argv[1]
    if way in SERVERS:
        SERVERS[way]()
        sys.exit()
    calls, examples = int(sys.argv[2]), os.path.abspath(sys.argv[3])
    if way == "import":
        print(f"{imported():.3f}")
    elif way in AWAITED:
        import asyncio

        print(f"{asyncio.run(AWAITED[way]()):.3f}")
    else:
        with WAYS[way]() as one_call:
            print(f"{measured(one_call, calls):.3f}")
