# SPDX-License-Identifier: MIT
"""What gdb loads with libkahost.so, beside which this file lies.

- SIGUSR1, SIGUSR2, SIGTERM and SIGCONT, which drive a host, reach it without a stop.
- A t_DECIMAL is printed as 12.34, a KaStr as its text with its room.
- $ka_arg(2) is argument 2 of the call in progress as it was passed; 0 is the function's name.
- ka-stop-in FUNCTION goes on until that function is called, and stops in the first line of its body.
"""
import decimal
import os
import re
import signal

import gdb
import gdb.printing


def read(address, size):
    return gdb.selected_inferior().read_memory(address, size).tobytes()


def read_number(address, size=4):
    return int.from_bytes(read(address, size), "little", signed=size == 4)


def pointer_bytes():
    return gdb.lookup_type("void").pointer().sizeof


def read_pointer(address):
    return int.from_bytes(read(address, pointer_bytes()), "little")


def address_of(symbol):
    return int(gdb.parse_and_eval(f"(unsigned long long)&{symbol}"))


# ---- Signals ---------------------------------------------------------------------------------------------------------

for name in ("SIGUSR1", "SIGUSR2", "SIGTERM", "SIGCONT"):
    gdb.execute(f"handle {name} nostop noprint pass", to_string=True)


# ---- Values ----------------------------------------------------------------------------------------------------------

NULL, NEGATIVE, DIGITS_MAX, BASE = 255, 0, 8, 100


def text_of_real(record):
    """Of the 12 bytes of a t_DECIMAL, exactly."""
    exponent = int.from_bytes(record[0:2], "little", signed=True)
    count = int.from_bytes(record[3:4], "little", signed=True)
    if record[2] == NULL:
        return "null"
    digits = record[4 : 4 + max(count, 0)]
    if not 0 <= count <= DIGITS_MAX or any(digit >= BASE for digit in digits):
        return "malformed"
    decimals = "".join(f"{digit:02}" for digit in digits).lstrip("0")
    power = 2 * (exponent - count) + len(decimals) - len(decimals.rstrip("0"))
    decimals = decimals.rstrip("0")
    if not decimals:
        return "0"
    value = decimal.Decimal((int(record[2] == NEGATIVE), tuple(map(int, decimals)), power))
    return f"{value:f}" if -16 <= power <= 0 or 0 <= power + len(decimals) <= 16 else str(value)


def quoted(characters):
    text = characters.decode("utf-8", "backslashreplace")
    return '"' + "".join(c if c.isprintable() else f"\\x{ord(c):02x}" for c in text.replace('"', '\\"')) + '"'


class RealPrinter:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        fields = [int(self.value[name]) for name in ("dec_exp", "dec_pos", "dec_ndgts")]
        record = fields[0].to_bytes(2, "little", signed=True) + bytes([fields[1], fields[2] & 0xFF])
        return text_of_real(record + bytes(int(self.value["dec_dgts"][i]) for i in range(DIGITS_MAX)))


class StringPrinter:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        length, room, data = (int(self.value[name]) for name in ("len", "maxlen", "data"))
        if not 0 <= length <= room:
            return f"malformed: length {length}, room {room}"
        return f"{quoted(read(data, length)) if length > 0 else quoted(b'')}, room {room}"


printers = gdb.printing.RegexpCollectionPrettyPrinter("kahost")
printers.add_printer("REAL", "^t_DECIMAL$", RealPrinter)
printers.add_printer("string", "^KaStr$", StringPrinter)
gdb.printing.register_pretty_printer(gdb.current_objfile(), printers, replace=True)


# ---- The arguments of the call in progress ---------------------------------------------------------------------------

INTEGER, REAL, STRING = 1, 2, 3


class Block:
    """The shared block, in the layout that the host's own argument names."""

    def __init__(self):
        words = gdb.execute("info proc cmdline", to_string=True)
        is_wide = re.search(r":64'?\s*$", words) is not None
        try:
            self.start = read_pointer(address_of("dll_info"))
        except gdb.error:  # the library is stripped: what it exports remains
            self.start = int(gdb.parse_and_eval("((unsigned long (*)(void))u_get_baseptr)()"))
        self.argc_at, self.first, self.step, self.counts = (44, 48, 32, 16) if is_wide else (36, 40, 24, 12)
        self.base = read_number(self.start + 16)

    def argument(self, number):
        argc = read_number(self.start + self.argc_at)
        if not 0 <= number < argc:
            raise gdb.GdbError(f"there is no argument {number}: the call has {max(argc - 1, 0)}")
        record = self.start + self.first + number * self.step
        address = self.start + ((read_number(record + 8) - self.base) & 0xFFFFFFFF)
        room, words, count = (read_number(record + self.counts + 4 * i) for i in range(3))
        return read_number(record), room, [address + 4 * words * i for i in range(max(count, 0))]


def array_of(type_name, size, addresses):
    """The elements side by side, however far apart they are."""
    element = gdb.lookup_type(type_name) if isinstance(type_name, str) else type_name
    together = b"".join(read(address, size) for address in addresses)
    if len(addresses) == 1:
        return gdb.Value(together, element)
    return gdb.Value(together, element.array(len(addresses) - 1))


def reals(addresses):
    try:
        return array_of("t_DECIMAL", 12, addresses)
    except gdb.error:  # the module does not know the type
        texts = [text_of_real(read(address, 12)) for address in addresses]
        return texts[0] if len(texts) == 1 else "{" + ", ".join(texts) + "}"


def strings(room, addresses):
    texts = [read(address + 4, min(max(read_number(address), 0), max(room, 0))) for address in addresses]
    char = gdb.lookup_type("char")
    width = max(max(map(len, texts)), 1)
    together = b"".join(text.ljust(width, b"\0") for text in texts)
    kind = char.array(width - 1)
    return gdb.Value(together, kind if len(texts) == 1 else kind.array(len(texts) - 1))


class Argument(gdb.Function):
    """$ka_arg(N): argument N of the call in progress, counted from 1, as it was passed; 0 is the function's name."""

    def __init__(self):
        super().__init__("ka_arg")

    def invoke(self, number):
        kind, room, addresses = Block().argument(int(number))
        if not addresses:
            return "no elements"
        if kind == INTEGER:
            return array_of("int", 4, addresses)
        if kind == REAL:
            return reals(addresses)
        if kind == STRING:
            return strings(room, addresses)
        raise gdb.GdbError(f"argument {int(number)} has the unknown type {kind}")


Argument()


# ---- Jumps -----------------------------------------------------------------------------------------------------------


class Jump(gdb.Breakpoint):
    """A host jumps back to its wait, and to the end of a call-back. A step of gdb's looks there for the place that is
    jumped to, which the C library keeps encrypted in the buffer; in a 32-bit host gdb takes what it finds for an
    address, and gives up. So it finds one at which nothing happens any more, main's, as long as it looks: from here to
    the next instruction, which is before the C library reads it."""

    PLACE_IN_BUFFER = 20

    def __init__(self, address):
        super().__init__(f"*{address:#x}", internal=True)
        self.after = None

    def stop(self):
        place = read_pointer(stack_pointer() + 4) + self.PLACE_IN_BUFFER
        kept = read(place, 4)
        gdb.selected_inferior().write_memory(place, address_of("main").to_bytes(4, "little"))
        self.after.restore = lambda: gdb.selected_inferior().write_memory(place, kept)
        return False


class AfterJump(gdb.Breakpoint):
    def __init__(self, address):
        super().__init__(f"*{address:#x}", internal=True)
        self.restore = None

    def stop(self):
        if self.restore is not None:
            self.restore()
        self.restore = None
        return False


jumps = []


def watch_jumps(event=None):
    """Once the C library is there."""
    if jumps or (event is not None and "/libc.so" not in event.new_objfile.filename):
        return
    try:
        if gdb.selected_inferior().architecture().name() != "i386":
            return
        address = address_of("siglongjmp")
        first = gdb.selected_inferior().architecture().disassemble(address)[0]["length"]
        jumps.extend([Jump(address), AfterJump(address + first)])
        jumps[0].after = jumps[1]
    except gdb.error:
        pass


def forget_jumps(_):
    while jumps:
        jump = jumps.pop()
        if jump.is_valid():
            jump.delete()


gdb.events.new_objfile.connect(watch_jumps)
gdb.events.exited.connect(forget_jumps)
if gdb.current_objfile() is None:  # loaded by hand into a host that runs
    watch_jumps()


# ---- The body of a function ------------------------------------------------------------------------------------------


def register(name):
    return int(gdb.parse_and_eval(f"(unsigned long long){name}"))


def is_wide():
    return pointer_bytes() == 8


def stack_pointer():
    return register("$rsp" if is_wide() else "$esp") & (2 ** (8 * pointer_bytes()) - 1)


def program_counter():
    return register("$pc") & (2 ** (8 * pointer_bytes()) - 1)


def called_index():
    """That of the function that is called; at the first instruction of KaCall."""
    return (register("$edi") if is_wide() else read_number(stack_pointer() + 4)) & 0xFFFFFFFF


def called_function():
    """Its name."""
    record = address_of("KaFuncList") + called_index() * (2 * pointer_bytes() + 8)
    return gdb.Value(read_pointer(record)).cast(gdb.lookup_type("char").pointer()).string("utf-8", "replace")


def symbol_at(address):
    text = gdb.execute(f"info symbol {address:#x}", to_string=True)
    return "" if text.startswith("No symbol") else text.rsplit(" in section", 1)[0]


def file_at(address):
    """The file whose code is there."""
    return gdb.solib_name(address) or gdb.current_progspace().filename


def is_in_plt(address):
    return ".plt" in gdb.execute(f"info symbol {address:#x}", to_string=True)


def is_in_dispatcher(address):
    name = symbol_at(address)
    return name.startswith("KaCall") or name.startswith("__x86.get_pc_thunk")


def writes_beyond_stack(words):
    """Of an instruction in AT&T form. What lies on the stack is the dispatcher's own."""
    name, _, operands = words.partition(" ")
    if name.startswith(("cmp", "test", "push", "lea", "nop", "j", "call", "endbr")):
        return False
    target = re.split(r",(?![^(]*\))", operands)[-1].strip()
    if target.startswith(("$", "%")) and "(" not in target and ":" not in target:
        return False
    based = re.search(r"\(%(\w+)", target)
    if based is None:
        return bool(target)
    base = register("$" + based[1]) & (2 ** (8 * pointer_bytes()) - 1)
    return not stack_pointer() - 4096 <= base <= stack_pointer() + 4096


class State:
    """Registers and the stack around: taken before, put back after some instructions that only decide where to go."""

    BELOW, ABOVE = 4096, 256

    def __init__(self):
        wide = "rax rbx rcx rdx rsi rdi rbp rsp r8 r9 r10 r11 r12 r13 r14 r15 rip"
        names = wide if is_wide() else "eax ebx ecx edx esi edi ebp esp eip"
        self.values = {name: register("$" + name) for name in names.split()}
        self.lowest = stack_pointer() - self.BELOW
        self.stack = read(self.lowest, self.BELOW + self.ABOVE)

    def put_back(self):
        gdb.selected_inferior().write_memory(self.lowest, self.stack)
        for name, value in self.values.items():
            gdb.execute(f"set var ${name} = {value}", to_string=True)


class Quiet:
    """gdb shows no step in between, and disassembles in one form."""

    def __enter__(self):
        self.flavor = gdb.parameter("disassembly-flavor")
        gdb.execute("set disassembly-flavor att")
        gdb.flush()
        self.output = os.dup(1)
        nowhere = os.open(os.devnull, os.O_WRONLY)
        os.dup2(nowhere, 1)
        os.close(nowhere)

    def __exit__(self, *_):
        gdb.flush()
        os.dup2(self.output, 1)
        os.close(self.output)
        gdb.execute(f"set disassembly-flavor {self.flavor}")


def dispatched_to():
    """From the first instruction of KaCall: where it goes on in the program, before it does anything else. None where
    it is the body itself. Nothing is changed."""
    before = State()
    found = None
    with Quiet():
        for _ in range(10000):
            address = program_counter()
            if not is_in_dispatcher(address):
                own = file_at(address) == gdb.current_progspace().filename and not is_in_plt(address)
                found = address if own else None
                break
            words = gdb.selected_frame().architecture().disassemble(address)[0]["asm"]
            leaves = words.startswith(("ret", "leave", "syscall", "int ")) and symbol_at(address).startswith("KaCall")
            if leaves or writes_beyond_stack(re.sub(r"^(notrack|bnd|rep\w*|lock) +", "", words)):
                break
            gdb.execute("stepi", to_string=True)
    before.put_back()
    return found


class Stop(gdb.Breakpoint):
    """Where this command wants to be; it is not shown."""

    def __init__(self, wanted=lambda: True, **place):
        super().__init__(internal=True, **place)
        self.silent = True
        self.wanted = wanted
        self.reached = False

    def stop(self):
        self.reached = self.wanted()
        return self.reached

    def is_here(self):
        text = gdb.execute(f"maint info breakpoints {self.number}", to_string=True)
        return any(int(found, 16) == program_counter() for found in re.findall(r"0x[0-9a-f]+", text))


def places_named(name):
    """Where functions of the program begin that have the name, in any namespace, inlined ones too: only those of which
    the source is known."""
    if not re.fullmatch(r"[A-Za-z_]\w*", name):
        return []
    try:
        _, found = gdb.decode_line(f"'{name}'")
    except gdb.error:
        return []
    program = gdb.current_progspace().filename
    return [place for place in found or () if place.symtab and place.symtab.objfile.filename == program]


def plain_name(text):
    """Of a function: without namespaces and parameters."""
    return re.sub(r"\(.*", "", text.replace("(anonymous namespace)::", "")).split("::")[-1]


def body_place(name, place):
    """Behind what a function does before its first line; one that is inlined does nothing."""
    if plain_name(symbol_at(place.pc)) == name:
        return {"source": place.symtab.filename, "function": name}
    return {"spec": f"*{place.pc:#x}"}


def invoker():
    """Where ka/module.hpp goes on from KaCall, which is stopped at its first instruction; None in other modules."""
    try:
        invokers = gdb.parse_and_eval("'(anonymous namespace)::ka_module_invokers'")
        return int(invokers["record"][called_index()]["run"])
    except gdb.error:
        return None


def is_own(address, line):
    """The module's, not of ka/module.hpp, the host or the standard library; KaCall is in the module's source, too."""
    if line.symtab is None or file_at(address) != gdb.current_progspace().filename:
        return False
    path = line.symtab.fullname()
    host = gdb.lookup_global_symbol("KaArgInfo")
    if host is not None and os.path.dirname(path) == os.path.dirname(host.symtab.fullname()):
        return False
    return re.search(r"/ka/module(\.hpp|/\w+\.hpp)$|/c\+\+/", path) is None


def own_places(address):
    """In the function that begins there: what is inlined into it."""
    block = gdb.block_for_pc(address)
    end = block.end if block is not None and block.function is not None else 0
    while address < end:
        line = gdb.find_pc_line(address)
        if is_own(address, line):
            yield address
        address = max(line.last or 0, address) + 1


def step_to_body(address, after):
    """To the function that is called from there, which may have any name, or none."""
    stops = [Stop(spec=f"*{place:#x}") for place in (address, *own_places(address))]
    gdb.execute("continue")
    with Quiet():
        for _ in range(1000):
            if after.reached or gdb.selected_inferior().pid == 0 or is_own(
                program_counter(), gdb.newest_frame().find_sal()
            ):
                break
            gdb.execute("step", to_string=True)
    for stop in stops:
        if stop.is_valid():
            stop.delete()


def body_places(name):
    """Where the body begins, as arguments of a breakpoint; from the first instruction of KaCall."""
    named = places_named(name)
    if named:
        return [body_place(name, place) for place in named]
    address = dispatched_to()
    if address is None or symbol_at(address).startswith("ka::module_detail::all_have_elements"):
        return [{"function": "KaCall"}]
    function = gdb.block_for_pc(address) and gdb.block_for_pc(address).function
    if function is None:
        return [{"spec": f"*{address:#x}"}]
    return [{"source": function.symtab.filename, "function": function.name}]


def select_body(name):
    """Functions that are inlined begin at one instruction with those inlined into them: gdb is in the innermost."""
    frame = gdb.newest_frame()
    while frame is not None:
        if plain_name(frame.name() or "") == name:
            frame.select()
            return
        frame = frame.older() if frame.type() == gdb.INLINE_FRAME else None


def return_address():
    return read_pointer(stack_pointer())


def let_interruptions_in():
    """A host blocks SIGINT, and gdb could not stop a function at ctrl-C. gdb keeps the signal for itself."""
    place = (stack_pointer() - 8192) & -16
    gdb.selected_inferior().write_memory(place, (1 << (signal.SIGINT - 1)).to_bytes(128, "little"))
    call = f"((int (*)(int, void *, void *))sigprocmask)({int(signal.SIG_UNBLOCK)}, (void *){place}, (void *)0)"
    try:
        gdb.parse_and_eval(call)
    except gdb.error:
        pass


class StopIn(gdb.Command):
    """ka-stop-in FUNCTION: goes on until that function of the module is called, and stops in the first line of its body.
    That is the function of the same name, or else the one to which KaCall leads, or KaCall itself."""

    def __init__(self):
        super().__init__("ka-stop-in", gdb.COMMAND_RUNNING)

    def invoke(self, name, from_tty):
        if not gdb.selected_inferior().architecture().name().startswith("i386"):
            raise gdb.GdbError("ka-stop-in knows processors of the x86 family only: break where the function is")
        if not self.reach_call(name):
            return
        unnamed = None if places_named(name) else invoker()
        stops = [Stop(**place) for place in body_places(name)] if unnamed is None else []
        after = Stop(spec=f"*{return_address():#x}")
        if unnamed is not None:
            step_to_body(unnamed, after)
        elif not any(stop.is_here() for stop in stops):
            gdb.execute("continue")
        if after.reached:
            print(f"ka-stop-in: {name} has returned, and its body was not found")
        for stop in stops + [after]:
            if stop.is_valid():
                stop.delete()
        if gdb.selected_inferior().pid != 0:
            let_interruptions_in()
            select_body(name)
            gdb.execute("frame")

    @staticmethod
    def reach_call(name):
        """True at the first instruction of KaCall for that function."""
        entry = Stop(spec="*KaCall", wanted=lambda: called_function() == name)
        is_there = gdb.selected_inferior().pid != 0 and entry.is_here() and called_function() == name
        if not is_there:
            with Quiet():
                gdb.execute("continue" if gdb.selected_inferior().pid != 0 else "run")
        is_there = is_there or entry.reached
        if entry.is_valid():
            entry.delete()
        return is_there


class Debug(StopIn):
    """ka-debug FUNCTION: ka-stop-in for ka debug: gdb ends with the host."""

    def __init__(self):
        gdb.Command.__init__(self, "ka-debug", gdb.COMMAND_RUNNING)
        self.quits = True

    def invoke(self, name, from_tty):
        if gdb.selected_inferior().pid == 0:  # it has ended without a call
            gdb.execute("quit")
        gdb.events.gdb_exiting.connect(self.leave)
        gdb.events.exited.connect(self.end)
        super().invoke(name, from_tty)

    def leave(self, _):
        self.quits = False

    def end(self, _):
        if self.quits:
            gdb.post_event(lambda: gdb.execute("quit"))


StopIn()
Debug()
