"""Pretty printers of gdb for the types of sys_vanta.

gdb loads this file by itself with the library, when it lies beside it (as LIBRARY-gdb.py) in a directory that
`auto-load safe-path` allows. Nothing here calls a function of the process, so that core files are shown as well, and
an object that is not constructed yet is shown as what its memory happens to hold.
"""

import re

import gdb
import gdb.printing
import gdb.types

MAX_BYTES = 32


def type_name(value):
    return str(gdb.types.get_basic_type(value.type))


def member_type(value, name):
    """A type that the value's class declares."""
    return gdb.lookup_type(type_name(value) + "::" + name)


def hex_bytes(address, count):
    """The first bytes of a block."""
    shown = min(count, MAX_BYTES)
    if shown <= 0:
        return ""
    memory = gdb.selected_inferior().read_memory(int(address), shown)
    text = " ".join("%02X" % byte[0] for byte in memory)
    return ": " + text + (" ..." if shown < count else "")


def plural(count, noun):
    return "%d %s" % (count, noun if count == 1 else noun + "s")


class StringPrinter:
    """CKoString: the text."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        data = self.value["m_data"]
        if int(data) == 0:
            return "<not constructed>"
        offset = data.dereference()["sentinel"].address.cast(gdb.lookup_type("char").pointer()) + 1
        return offset.lazy_string("UTF-8", int(data["byteLength"]))

    def display_hint(self):
        return "string"


class SequencePrinter:
    """Elements behind each other. Derived classes say where they are."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        return "%s with %s" % (type_name(self.value), plural(self.size(), "element"))

    def children(self):
        for index, element in enumerate(self.elements()):
            yield "[%d]" % index, element

    def display_hint(self):
        return "array"


class SmallVectorPrinter(SequencePrinter):
    """TKoSmallVector: the elements follow their count and capacity."""

    def size(self):
        data = self.value["m_data"]
        return int(data["size"]) if int(data) != 0 else 0

    def elements(self):
        first = (self.value["m_data"] + 1).cast(self.value.type.template_argument(0).pointer())
        return (first[index] for index in range(self.size()))


class HolderPrinter(SequencePrinter):
    """A container that keeps its elements in a TKoSmallVector."""

    def vector(self):
        return SmallVectorPrinter(self.value["m_pointers"])

    def size(self):
        vector = self.vector()
        return vector.size() if vector is not None else 0

    def elements(self):
        vector = self.vector()
        return vector.elements() if vector is not None else ()


class SharedVectorPrinter(HolderPrinter):
    """TKoConstRefCountedVector: none, or a shared vector."""

    def vector(self):
        shared = self.value["m_shared"]
        return SmallVectorPrinter(shared["elements"]) if int(shared) != 0 else None


class VectorPrinter(SequencePrinter):
    """TKoVector and TKoSortedVector: a std::vector with more operations."""

    def __init__(self, value):
        base = value
        while not str(base.type.strip_typedefs()).startswith("std::"):
            base = base[base.type.strip_typedefs().fields()[0]]
        self.value = value
        self.base = base

    def standard(self):
        """The printer of the base; knows the packed vector of bool, too."""
        return gdb.default_visualizer(self.base)

    def elements(self):
        return () if self.standard() is None else (element for _, element in self.standard().children())

    def size(self):
        length = None if self.standard() is None else re.search(r"length (\d+)", self.standard().to_string())
        return int(length.group(1)) if length else 0


class MapPrinter(VectorPrinter):
    """TKoMap: keys and what they map to."""

    def children(self):
        for index, pair in enumerate(self.elements()):
            yield "[%d].key" % index, pair["first"]
            yield "[%d].value" % index, pair["second"]

    def display_hint(self):
        return "map"


class QueuePrinter(SequencePrinter):
    """TKoQueue: a ring of slots, oldest element first."""

    def size(self):
        return int(self.value["m_size"])

    def elements(self):
        first, capacity = int(self.value["m_first"]), int(self.value["m_capacity"])
        return (self.value["m_slots"][(first + index) % capacity] for index in range(self.size()))


class ListPrinter(SequencePrinter):
    """TKoList: a ring of nodes around the list's own."""

    def size(self):
        return int(self.value["m_size"])

    def elements(self):
        node_type = member_type(self.value, "SNode").pointer()
        ring = self.value["m_ring"]
        node = ring["m_next"]
        for _ in range(self.size()):
            if int(node) == int(ring.address):
                return
            yield node.cast(node_type)["value"]
            node = node["m_next"]


class HashPrinter:
    """TKoHashMap and TKoHashArray: keys and values. Derived classes say which items are in use and where
    their objects are."""

    def __init__(self, value):
        self.value = value

    def slot(self, argument, content, is_in_place):
        """The object of a slot, of the class's template argument: in the slot itself, or where it points."""
        pointer = self.value.type.template_argument(argument).pointer()
        return (content.address if is_in_place else content).cast(pointer).dereference()

    def to_string(self):
        count = sum(1 for _ in self.items())
        return "%s with %d %s" % (type_name(self.value), count, "entry" if count == 1 else "entries")

    def children(self):
        for index, item in enumerate(self.items()):
            yield "[%d].key" % index, self.key(item)
            yield "[%d].value" % index, self.item_value(item)

    def display_hint(self):
        return "map"


class HashArrayPrinter(HashPrinter):
    """Buckets, each with a chain behind it that ends at the table's own marker."""

    def items(self):
        end = int(self.value["m_end"].address)
        for bucket in range(int(self.value["m_bucketCount"])):
            item = self.value["m_table"][bucket].address
            while int(item) != end and int(item["next"]) != 0:
                yield item
                item = item["next"]

    def has_place(self, argument):
        """Whether the program has code for objects of the type in a slot: then they are."""
        try:
            gdb.lookup_type("KoPrivate::TKoHashSlot<%s, true>" % self.value.type.template_argument(argument))
            return True
        except gdb.error:
            return False

    def key(self, item):
        return self.slot(0, item["key"], self.has_place(0))

    def item_value(self, item):
        return self.slot(1, item["value"], self.has_place(1))


class HashMapPrinter(HashPrinter):
    """Buckets, empty ones with key 0, and the overflow area behind them, where all chains lie."""

    def items(self):
        table, buckets = self.value["m_table"], int(self.value["m_bucketCount"])
        used = int(self.value["m_nextFree"] - table) if int(table) != 0 else 0
        for index in range(1, used):
            if index >= buckets or int(table[index]["key"]) != 0:
                yield table[index].address

    def key(self, item):
        return item["key"]

    def item_value(self, item):
        carried = self.value["m_carriedEntry"]  # still in the table before the last growth
        is_carried = int(carried) != 0 and int(carried["key"]) == int(item["key"])
        return self.slot(0, (carried if is_carried else item)["value"], bool(self.value["IN_PLACE"]))


class MemoryBufferPrinter:
    """CKoRCMemoryBuffer and CKoBuffer: size, sharing and the first bytes."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        data = self.value["m_data"]
        if int(data) == 0:
            return "<not constructed>"
        size, references = int(data["size"]), int(data["refCount"])
        shared = " shared by %d" % references if references > 1 and size > 0 else ""
        return plural(size, "byte") + shared + hex_bytes(data["data"], size)


class ByteStreamPrinter:
    """CKoByteStream: what was written, and how far it was read."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        length, position = int(self.value["m_length"]), int(self.value["m_position"])
        error = ", in error" if bool(self.value["m_error"]) else ""
        return "%s, read up to %d%s%s" % (plural(length, "byte"), position, error,
                                          hex_bytes(self.value["m_buffer"]["m_data"]["data"], length))


class CircularBufferPrinter:
    """CKoCircularByteBuffer: the bytes held, oldest first."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        begin, end = int(self.value["m_physBegin"]), int(self.value["m_physEnd"])
        first, last = int(self.value["m_logicBegin"]), int(self.value["m_logicEnd"])
        storage = end - begin
        held = last - first if first <= last else last - first + storage
        run = min(held, end - first)
        text = "%d of %s" % (held, plural(max(storage - 1, 0), "byte")) + hex_bytes(first, run)
        return text if run == held else text + hex_bytes(begin, held - run).replace(":", "", 1)


class LockPrinter:
    """CKoCriticalSection and CKoMutex: who holds it."""

    OWNER_ID = 0x3FFFFFFF
    OWNER_WAITED_FOR = 0x80000000
    RECURSIVE = 0x80000000
    SHARED = 0x40000000
    COUNT = 0x00FFFFFF

    def __init__(self, value):
        self.value = value

    def owner(self, kernel_id):
        for thread in gdb.selected_inferior().threads():
            if thread.ptid[1] == kernel_id:
                return 'thread %d "%s" (LWP %d)' % (thread.num, thread.name, kernel_id)
        return "no thread of this process (LWP %d)" % kernel_id

    def to_string(self):
        count, owner = int(self.value["m_mutex"]["count"]), int(self.value["m_mutex"]["owner"])
        kernel_id = owner & self.OWNER_ID
        text = "held by " + self.owner(kernel_id) if kernel_id != 0 else "free"
        if kernel_id != 0 and count & self.COUNT:
            text += ", locked again %s" % plural(count & self.COUNT, "time")
        if owner & self.OWNER_WAITED_FOR:
            text += ", waited for"
        if count & self.SHARED:
            text += ", shared"
        return text + (", recursive" if count & self.RECURSIVE else "")


def printers():
    collection = gdb.printing.RegexpCollectionPrettyPrinter("sys_vanta")
    for name, expression, printer in (
            ("CKoString", "^CKoString$", StringPrinter),
            ("TKoSmallVector", "^TKoSmallVector<.*>$", SmallVectorPrinter),
            ("TKoPtrVector", "^TKoPtrVector<.*>$", HolderPrinter),
            ("TKoConstRefCountedVector", "^TKoConstRefCountedVector<.*>$", SharedVectorPrinter),
            ("TKoVector", "^TKo(Sorted)?Vector<.*>$", VectorPrinter),
            ("TKoMap", "^TKoMap<.*>$", MapPrinter),
            ("TKoQueue", "^TKoQueue<.*>$", QueuePrinter),
            ("TKoList", "^TKoList<.*>$", ListPrinter),
            ("TKoHashMap", "^TKoHashMap<.*>$", HashMapPrinter),
            ("TKoHashArray", "^TKoHashArray<.*>$", HashArrayPrinter),
            ("CKoBuffer", "^CKo(RCMemory)?Buffer$", MemoryBufferPrinter),
            ("CKoByteStream", "^CKoByteStream$", ByteStreamPrinter),
            ("CKoCircularByteBuffer", "^CKoCircularByteBuffer$", CircularBufferPrinter),
            ("locks", "^CKo(CriticalSection|Mutex)$", LockPrinter)):
        collection.add_printer(name, expression, printer)
    return collection


gdb.printing.register_pretty_printer(gdb.current_objfile(), printers(), replace=True)
