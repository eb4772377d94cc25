"""What gdb shows of ftclient: printers for its types, and the command `info ftclient`.

docs/debugging.md says how to load this file and what it prints. It needs debug information, and the
printers of the C++ library, which gdb loads by itself.
"""

import contextlib
import datetime
import itertools

import gdb.printing

SHOWN_BYTES = 32
MOST_CHILDREN = 100_000  # what is no container any more may seem to go on for ever
FIRST_WALL_CLOCK_SECOND = 10**9  # the tick clock counts from the start of the machine

# Reading values. What the C++ library's containers hold comes from that library's printers.


@contextlib.contextmanager
def failing_with(kind):
    """Tells what goes wrong in Python, where memory holds no such object, the way gdb does."""
    try:
        yield
    except (gdb.error, ArithmeticError, LookupError, OSError, TypeError, ValueError) as error:
        raise kind(str(error)) from None


def each_child(value):
    """What a container or a smart pointer holds."""
    with failing_with(gdb.MemoryError):
        printer = gdb.default_visualizer(value)
        if printer is None:
            raise gdb.GdbError(f"no printer for {value.type}; are those of libstdc++ loaded?")
        yield from (child for _, child in itertools.islice(printer.children(), MOST_CHILDREN))


def inner(value):
    return next(each_child(value))


def atomic(value):
    is_bool = value.type.strip_typedefs().name == "std::atomic<bool>"
    return int((value["_M_base"] if is_bool else value)["_M_i"])


def entries(a_map):
    """The keys, as plain text, and the values of a std::map with strings as keys. Its own printer
    does not find the type of the nodes in code that was optimised as a whole."""
    types = [a_map.type.strip_typedefs().template_argument(index) for index in (0, 1)]

    def values_of(node):
        address = int(node) + node.dereference().type.sizeof
        for a_type in types:
            address += -address % a_type.alignof
            yield gdb.Value(address).cast(a_type.pointer()).dereference()
            address += a_type.sizeof

    def walk(node):
        if int(node):
            yield from walk(node["_M_left"])
            key, value = values_of(node)
            yield text(key), value
            yield from walk(node["_M_right"])

    return list(walk(a_map["_M_t"]["_M_impl"]["_M_header"]["_M_parent"]))


def text(string):
    length = int(string["_M_string_length"])
    if length > MOST_CHILDREN:
        raise gdb.MemoryError("not a string any more")
    return string["_M_dataplus"]["_M_p"].string(errors="replace", length=length)


def enumerator(value):
    return str(value).rpartition("::")[2]


def count(number, noun):
    return f"{number} {noun}" if number == 1 else f"{number} {noun}s"


class Constants:
    """Names of the constants that begin with a prefix, by value, as the program defines them."""

    def __init__(self, prefix):
        self._prefix, self._names = prefix, {}

    def name(self, value):
        if not self._names:
            listing = gdb.execute(f"info variables -q {self._prefix}", to_string=True)
            for line in listing.splitlines():
                name = line.rstrip(";").partition(" const uint32_t ")[2]
                if name:
                    number = int(gdb.parse_and_eval(f"'{name}'"))
                    self._names[number] = name.rpartition("::")[2]
        return self._names.get(int(value), f"{self._prefix}{int(value)}")


MESSAGES = Constants("FTMSG_")
TIMERS = Constants("TIMER_")

# Printers.


class Printer:
    """One for each type, whose name is type_name, parameters of a template aside."""

    def __init_subclass__(cls):
        cls.to_string = failing_with(gdb.MemoryError)(cls.to_string)

    def __init__(self, value):
        self._value = value


class Time(Printer):
    type_name = "FTTime"

    def to_string(self):
        seconds, milliseconds = int(self._value["seconds"]), int(self._value["milliseconds"])
        if seconds < FIRST_WALL_CLOCK_SECOND:
            return f"{seconds}.{milliseconds:03} s on the tick clock"
        moment = datetime.datetime.utcfromtimestamp(seconds)
        return f"{moment:%Y-%m-%d %H:%M:%S}.{milliseconds:03} UTC"


class Msg(Printer):
    type_name = "FTMsg"

    def to_string(self):
        name = MESSAGES.name(self._value["id"])
        parameters = ", ".join(hex(int(self._value[field])) for field in ("p1", "p2", "p3", "p4"))
        if name == "FTMSG_TIMER":
            timer = TIMERS.name(self._value["param1"])
            return f"{name}({timer} after {int(self._value['param2'])} ms, {parameters})"
        return f"{name}({parameters})"


class Buffer(Printer):
    type_name = "CFTBuffer"

    def to_string(self):
        begin, end = self._value["m_read"], self._value["m_write"]
        length, capacity = int(end - begin), int(self._value["m_capacity"])
        if int(begin) == 0:
            return "released"
        if length < 0 or length > capacity:
            return "not a buffer any more"
        size = f"{length} of {count(capacity, 'byte')}"
        if length == 0:
            return size
        memory = gdb.selected_inferior().read_memory(int(begin), min(length, SHOWN_BYTES)).tobytes()
        readable = "".join(chr(byte) if 0x20 <= byte < 0x7F else "." for byte in memory)
        return f"{size}: {memory.hex(' ')} |{readable}|" + (" ..." if length > SHOWN_BYTES else "")


class LinkInfo(Printer):
    type_name = "FTLinkInfo"

    def to_string(self):
        link_id = text(self._value["link_id"])
        if not link_id:
            return "no link"
        kind = enumerator(self._value["kind"])
        return f"{link_id}, {kind}, {self.end('local')} to {self.end('remote')}"

    def end(self, which):
        return f"{text(self._value[which + '_address']) or '?'}:{int(self._value[which + '_port'])}"


class Link(Printer):
    type_name = "CFTLink"

    def to_string(self):
        record = LinkInfo(inner(self._value["m_record"]).dereference())
        return f"{self.state()}: {record.to_string()}"

    def state(self):
        end = atomic(self._value["m_end"])
        if end >= 0:
            reason = gdb.Value(end).cast(gdb.lookup_type("FTCloseReason"))
            return f"ended, {enumerator(reason)}"
        return "up" if atomic(self._value["m_announced"]) else "starting"


class LockedValue(Printer):
    type_name = "CFTLockedValue"

    def to_string(self):
        return self._value["m_value"]


class SendItem(Printer):
    type_name = "FTSendItem"

    def to_string(self):
        owned = "" if int(self._value["release"]) else ", the sender's"
        return f"{Buffer(self._value['buffer'].dereference()).to_string()}{owned}"


class SendQueue(Printer):
    type_name = "CFTSendQueue"

    def to_string(self):
        return count(int(self._value["m_count"]), "item")

    def children(self):
        lists = self._value["m_lists"]["_M_elems"]
        for index in range(lists.type.strip_typedefs().range()[1] + 1):
            for item in each_child(lists[index]["items"]):
                yield f"priority {index + 1}", item


class MsgFifo(Printer):
    type_name = "CFTMsgFifo"

    def to_string(self):
        return count(int(self._value["m_count"]), "message")

    def children(self):
        for run in each_child(self._value["m_runs"]):
            for msg in itertools.islice(each_child(run["msgs"]), int(run["head"]), None):
                yield "", msg

    def display_hint(self):
        return "array"


class SubQueues(Printer):
    type_name = "CFTSubQueues"

    def to_string(self):
        return count(int(self._value["m_pending"]), "message")

    def children(self):
        for key, queue in entries(self._value["m_sub_queues"]):
            yield f'"{key}" of weight {int(queue["weight"])}', queue["messages"]


class TimerList(Printer):
    type_name = "CFTTimerList"

    def to_string(self):
        return count(sum(1 for _ in each_child(self._value["m_timers"])), "timer")

    def children(self):
        for timer in each_child(self._value["m_timers"]):
            msg, armed_at = timer["msg"], Time(timer["armed_at"]).to_string()
            yield TIMERS.name(msg["param1"]), f"{int(msg['param2'])} ms from {armed_at}"


def printers():
    collection = gdb.printing.RegexpCollectionPrettyPrinter("ftclient")
    for printer in Printer.__subclasses__():
        collection.add_printer(printer.type_name, rf"^{printer.type_name}(<.*>)?$", printer)
    return collection


# The command and the function.

# Where a thread's stack has the object that it runs; compilers keep one or the other.
OBJECTS_IN_FRAMES = {"CMyThread::Run": "this", "CMyThread::ThreadEntry": "thread"}


def object_of(thread):
    """The object that a thread of the library runs, as what it is; None for other threads."""
    thread.switch()
    frame = gdb.newest_frame()
    while frame is not None:
        if frame.name() in OBJECTS_IN_FRAMES:
            address = frame.read_var(OBJECTS_IN_FRAMES[frame.name()])
            if not address.is_optimized_out:
                base = address.cast(gdb.lookup_type("CMyThread").pointer())
                return base.cast(base.dynamic_type).dereference()
        frame = frame.older()
    return None


def objects_of_threads():
    """All of them, with their threads, in the order of the threads' numbers."""
    if gdb.selected_thread() is None:
        raise gdb.GdbError("The program is not being run.")
    selected_thread, selected_frame = gdb.selected_thread(), gdb.selected_frame()
    try:
        threads = sorted(gdb.selected_inferior().threads(), key=lambda thread: thread.num)
        found = [(object_of(thread), thread) for thread in threads]
        return [(value, thread) for value, thread in found if value is not None]
    finally:
        selected_thread.switch()
        selected_frame.select()


def has_base(a_type, name):
    is_class = a_type.strip_typedefs().code == gdb.TYPE_CODE_STRUCT
    fields = a_type.strip_typedefs().fields() if is_class else []
    return a_type.name == name or any(has_base(f.type, name) for f in fields if f.is_base_class)


def serves(value, protocol):
    """Whether the object is the protocol object or one of its engine's threads."""
    if has_base(value.type, "CFTEngineThread"):
        return value["m_protocol"] == protocol.address
    return value.address == protocol.address


def print_table(heads, rows):
    widths = [max(len(str(row[i])) for row in [heads] + rows) for i in range(len(heads))]
    for row in [heads] + rows:
        cells = (str(cell).ljust(width) for cell, width in zip(row, widths))
        gdb.write("  " + "  ".join(cells).rstrip() + "\n")


def link_row(link_id, receive_thread):
    link = receive_thread["m_link"]
    record = inner(link["m_record"]).dereference()
    socket = atomic(link["m_socket"])
    send_thread = inner(receive_thread["m_send_thread"])
    ends = [LinkInfo(record).end(which) for which in ("local", "remote")]
    queued = int(send_thread.dereference()["m_queued_bytes"]) if int(send_thread) else "-"
    kind, handle = enumerator(record["kind"]), socket if socket >= 0 else "closed"
    return [link_id, kind, Link(link).state(), *ends, handle, queued]


def thread_row(queue, thread):
    timers = each_child(queue["m_timers"]["m_timers"])
    names = ", ".join(TIMERS.name(timer["msg"]["param1"]) for timer in timers) or "none"
    name, waiting = text(queue["m_thread_name"]["m_value"]), queue["m_sub_queues"]["m_pending"]
    return [thread.num, thread.ptid[1], name, int(waiting), names]


class InfoFtclient(gdb.Command):
    """Show the links and the threads of ftclient's socket engines.

Usage: info ftclient [EXPRESSION]
EXPRESSION is a client or a protocol object of your own, or a pointer to it, such as `this`.
Without one all protocol objects are shown whose threads run."""

    def __init__(self):
        super().__init__("info ftclient", gdb.COMMAND_STATUS, gdb.COMPLETE_EXPRESSION)

    @failing_with(gdb.GdbError)
    def invoke(self, argument, from_tty):
        running = objects_of_threads()
        found = [value for value, _ in running if has_base(value.type, "CFTBaseSockIf")]
        protocols = [self._evaluate(argument)] if argument else found
        if not protocols:
            raise gdb.GdbError("No thread of ftclient runs, or its debug information is missing.")
        for protocol in protocols:
            self._show(protocol, running)

    @staticmethod
    def _evaluate(argument):
        value = gdb.parse_and_eval(argument)
        if value.type.strip_typedefs().code == gdb.TYPE_CODE_PTR:
            if int(value) == 0:
                raise gdb.GdbError(f"{argument} is null.")
            value = value.dereference()
        if value.address is not None and has_base(value.dynamic_type, "CFTBaseSockIf"):
            return value.address.cast(value.dynamic_type.pointer()).dereference()
        raise gdb.GdbError(f"{argument} is no CFTBaseSockIf.")

    @staticmethod
    def _show(protocol, running):
        if not (engine := inner(protocol["m_engine"])):
            raise gdb.GdbError(f"{protocol.type.name} at {int(protocol.address):#x} has no engine.")
        gdb.set_convenience_variable("engine", engine)
        state = engine["m_state"]
        gdb.write(
            f"{protocol.type.name} at {int(protocol.address):#x}, "
            f"$engine = {int(engine):#x}\n"
            f"  {atomic(state['queued_send_bytes'])} bytes to be sent, "
            f"{atomic(state['recv_backlog']['m_bytes'])} received and not yet delivered\n"
        )
        links = entries(engine["m_links"])
        if links:
            heads = ["link", "kind", "state", "local", "remote", "socket", "bytes to be sent"]
            print_table(heads, [link_row(key, inner(link).dereference()) for key, link in links])
        rows = [thread_row(value, thread) for value, thread in running if serves(value, protocol)]
        print_table(["thread", "LWP", "name", "messages", "timers"], rows)


class Object(gdb.Function):
    """The object that a thread of ftclient runs: $ftobject(NUMBER OF THE THREAD)."""

    def __init__(self):
        super().__init__("ftobject")

    @failing_with(gdb.GdbError)
    def invoke(self, number):
        for value, thread in objects_of_threads():
            if thread.num == int(number):
                return value
        raise gdb.GdbError(f"Thread {number} is none of ftclient's.")


InfoFtclient()
Object()
gdb.printing.register_pretty_printer(gdb.current_objfile(), printers(), replace=True)
