#!/usr/bin/env python3
"""Lists the header, the operators, their tensors and the outputs of a graph file.
docs/graph-file.md describes the format, and its last table says which parameters operators have.

Usage: read_graph_file.py [--json] FILE
"""
import json
import pathlib
import re
import struct
import sys

PAGE = pathlib.Path(__file__).resolve().parent.parent / "docs" / "graph-file.md"
ALIGNED, DTYPE_TABLE, PRIORITIES, NODES, OUTPUT_DTYPES, RESERVED = 1, 2, 4, 8, 16, 0xE0
# What `struct` calls them.
NUMBERS = {"u8": "B", "bool": "B", "u32": "I", "i32": "i", "f32": "f"}
# And elements; the bits of one that is less than a byte.
DTYPES = {0: ("Float32", "f"), 1: ("Uint8", "B"), 2: ("Int8", "b"), 3: ("Int16", "h"),
          4: ("Int32", "i"), 5: ("IntB1", 1), 6: ("IntB2", 2), 7: ("IntB4", 4), 8: ("Byte", "B"),
          9: ("Float16", "e"), 100000: ("Quantized8Asymm", "B"), 100001: ("QuantizedS32", "i"),
          100002: ("QuantizedS8", "b")}
NODE = re.compile(r"xpu|cpu:default|[xc]pu(x|\d+)(:\d+)?|[xc]pu:\d+")
MAX_BYTES_WITHOUT_VALUE = 1 << 30
COUNT = "a count is larger than the rest of the file can hold"
DTYPE = "a data type is not known, or its scale is not finite and positive"
SHAPE = "a shape has no or too many axes, or is too large"
OPERATOR = "the operator does not take these inputs or parameters"
SHARED_COUNT = "the shared tensors are not as many as the header says"


class BrokenFile(Exception):
    pass


def read_operator_table():
    """Name, inputs, outputs and parameters (form, name, limit, "> 0" or nothing) by id."""
    rows = ([cell.strip() for cell in line.split("|")[1:-1]]
            for line in PAGE.read_text().splitlines() if line.startswith("| 0x"))
    parameter = re.compile(r"([\w\[\]]+) (\w+)(?: < (\d+))?( > 0)?")
    return {int(row[0], 16): (*row[1:4], parameter.findall(row[4])) for row in rows}


def numbers_allowed(text, parameters):
    """Of a text such as "1 to 4" or "1, 2 where axis < 0"."""
    low, high, instead, name, limit = re.fullmatch(
        r"(\d+)(?: to (\d+))?(?:, (\d+) where (\w+) < (\d+))?", text).groups()
    if instead and parameters[name] < int(limit):
        low = instead
    return range(int(low), int(high or low) + 1)


class GraphFile:
    def __init__(self, data):
        self.data, self.at, self.record = data, 0, None
        self.field = 0  # where the one begins that was read last
        self.nodes, self.nr_vars, self.nr_shared, self.operators = [], 0, 0, []
        self.known = read_operator_table()
        self.read_header()
        for self.record in range(self.nr_operators):
            self.operators.append(self.read_operator())
        self.record = None
        self.outputs = [{"var": self.place(self.varint(), self.nr_vars), "id": self.varint()}
                        for _ in range(self.count(2))]
        if self.nr_shared != self.nr_shared_tensors:
            self.fail(SHARED_COUNT)

    def fail(self, text, at=None):
        record = "" if self.record is None else f", operator {self.record}"
        raise BrokenFile(f"byte {self.field if at is None else at}{record}: {text}")

    def bytes(self, size):
        if size != 0:
            self.field = self.at
        self.check_size(size)
        self.at += size
        return self.data[self.at - size:self.at]

    def check_size(self, size):
        if size > len(self.data) - self.at:
            self.fail("the file ends inside a field")

    def number(self, letter):
        return struct.unpack("<" + letter, self.bytes(struct.calcsize("<" + letter)))[0]

    def varint(self):
        begin, value, byte = self.at, 0, 0x80
        while byte & 0x80:
            byte = self.number("B")
            value = value << 7 | byte & 0x7F
            if value >= 1 << 64 or self.at - begin > 10:
                self.fail("a number has more than 64 bits", begin)
        self.field = begin
        return value

    def string(self):
        size = self.varint()
        if size > 1048576:
            self.fail("a string is longer than 1048576 bytes")
        return self.text(size)

    def text(self, size):
        self.check_size(size)
        return self.bytes(size).decode(errors="backslashreplace")

    def count(self, bytes_each, letter=None):
        count = self.number(letter) if letter else self.varint()
        if count > (len(self.data) - self.at) // bytes_each:
            self.fail(COUNT)
        return count

    def place(self, index, size):
        if not 0 <= index < size:
            self.fail("an index is outside its table")
        return index

    def node(self, text):
        if not NODE.fullmatch(text) or any(int(n) >= 1 << 31 for n in re.findall(r"\d+", text)):
            self.fail("a node cannot be loaded")
        return text

    def new_node(self, text):
        self.nodes.append(self.node(text))
        return text

    def dtype(self, number, quantised=True):
        if number not in DTYPES or number >= 100000 and not quantised:
            self.fail(DTYPE)
        name = DTYPES[number][0]
        if number >= 100000:
            scale = self.number("f")
            if not 0 < scale < float("inf"):
                self.fail(DTYPE)
            name += f" scale {scale:.9g}"
        return name + (f" zero point {self.number('B')}" if number == 100000 else "")

    def read_header(self):
        magic = self.bytes(8)
        if magic != b"orb0000a" and magic[:7] != b"orb0001":
            self.fail("this is not a graph file")
        self.features = 0 if magic == b"orb0000a" else magic[7]
        if self.features & RESERVED:
            self.fail("a reserved feature bit is set")
        self.version = self.number("I") if self.features & NODES else None
        self.hash = self.number("Q")
        if self.hash == 0:
            self.fail("the graph hash is 0")
        self.nr_shared_tensors = self.count(4, "Q")
        self.types = []  # grows by what stands in operators
        while len(self.types) < 6 and (type_id := self.number("Q")):
            self.types.append(type_id)
        self.dtypes = list(self.bytes(7) if self.features & DTYPE_TABLE else range(7))
        self.with_dtype = {self.varint() for _ in range(
            self.count(1) if self.features & OUTPUT_DTYPES else 0)}
        self.nr_operators = self.count(2)
        for position in self.with_dtype:
            self.place(position, self.nr_operators)

    def read_operator(self):
        offset, head = self.at, self.number("B")
        type_id = self.read_type(head & 7)
        if type_id not in self.known:
            self.fail(f"the operator is not in {PAGE.name}", offset)
        name, inputs, outputs, fields = self.known[type_id]
        nr_inputs = head >> 5 if head >> 5 != 7 else self.count(1)
        op = {"offset": offset, "id": f"0x{type_id:016x}", "name": name}
        op["inputs"] = [self.place(self.nr_vars - self.varint(), self.nr_vars)
                        for _ in range(nr_inputs)]
        op["nodes"] = self.read_config_nodes() if self.features & NODES else []
        if self.record in self.with_dtype:
            op["output dtype"] = self.dtype(self.varint())
        op["parameters"] = self.read_parameters(fields)
        if nr_inputs not in numbers_allowed(inputs, op["parameters"]):
            self.fail(OPERATOR)
        nr_outputs = numbers_allowed(outputs, op["parameters"])[0]
        op["outputs"] = list(range(self.nr_vars, self.nr_vars + nr_outputs))
        op["names"] = [self.string() for _ in op["outputs"]] if head & 0x10 else []
        op["priority"] = self.number("i") if self.features & PRIORITIES else 0
        if self.bytes(1) != b"e":
            self.fail("the record does not end with its mark")
        self.nr_vars += nr_outputs
        return op

    def read_type(self, selector):
        if selector == 7:
            self.types.append(self.number("Q"))
            return self.types[-1]
        return self.types[self.place(self.varint() if selector == 6 else selector,
                                     len(self.types))]

    def read_config_nodes(self):
        byte = self.number("B")
        if byte & 1:
            return [self.node(self.string()) for _ in range(byte >> 2)]
        if byte & 2:
            return [self.nodes[self.place(byte >> 2, len(self.nodes))]]
        return [self.new_node(self.string())]

    def read_parameters(self, fields):
        begin, widest, parameters = self.at, 1, {}

        def aligned(letter):
            nonlocal widest
            size = struct.calcsize("<" + letter)
            widest = max(widest, size)
            self.bytes((begin - self.at) % size)
            return self.number(letter)

        for form, name, limit, positive in fields:
            if form == "tensor":
                value = self.read_tensor(parameters.get("role"))
            elif form in ("dtype", "dtype32", "plain32"):
                value = self.dtype(self.varint() if form == "dtype" else self.number("I"),
                                   form != "plain32")
            elif form == "i32[]":
                count = self.count(4, "I")
                value = [aligned("i") for _ in range(count)]
            else:
                value = aligned(NUMBERS[form])
                if (value >= (int(limit) if limit else 2 if form == "bool" else 1 << 32)
                        or (positive and value == 0)):
                    self.fail(OPERATOR)
            parameters[name] = value
        self.bytes((begin - self.at) % widest)
        return parameters

    def read_tensor(self, role):
        """`role`: 0 for an input, 1 for a shared tensor, None for a constant."""
        self.nr_shared += role == 1
        if self.nr_shared > self.nr_shared_tensors:
            self.fail(SHARED_COUNT)
        head = self.number("B")
        tensor = {"name": self.string() if head & 1 else ""}
        byte = 0x80 if head & 4 else self.number("B")
        tensor["node"] = (self.nodes[self.place(byte ^ 0x80, len(self.nodes))] if byte & 0x80
                          else self.new_node(self.text(byte)))
        rank = self.varint() if head >> 3 & 3 == 3 else 1 << (head >> 3 & 3)
        if not 1 <= rank <= 7:
            self.fail(SHAPE)
        number = self.varint() if head >> 5 == 7 else self.dtypes[head >> 5]
        tensor["dtype"] = self.dtype(number)
        letter = DTYPES[number][1]
        bits = letter if isinstance(letter, int) else 8 * struct.calcsize("<" + letter)
        tensor["shape"], elements, largest = [], 1, max(bits // 8, 1)
        for _ in range(rank):
            tensor["shape"].append(self.varint())
            elements *= tensor["shape"][-1]
            largest *= max(tensor["shape"][-1], 1)
            if largest >= 1 << 63:
                self.fail(SHAPE)
        if head & 2:
            tensor["value"] = self.read_value(letter, (elements * bits + 7) // 8)
        elif role != 0 or elements * bits // 8 > MAX_BYTES_WITHOUT_VALUE:
            self.fail("a tensor has no value, or is too large to be without one")
        return tensor

    def read_value(self, letter, size):
        self.check_size(size)
        distance = -self.at % 32
        if self.features & ALIGNED and size >= 8 * distance:
            self.bytes(distance)
        raw = self.bytes(size)
        return (raw.hex() if isinstance(letter, int)
                else [item[0] for item in struct.iter_unpack("<" + letter, raw)])


def text_of(value):
    if isinstance(value, dict):
        return ", ".join(f"{key} {text_of(item)}" for key, item in value.items())
    if isinstance(value, list):
        return "[" + ", ".join(map(str, value[:16])) + (", ...]" if len(value) > 16 else "]")
    return str(value)


def describe(graph):
    yield (f"features 0x{graph.features:02x}, version {graph.version}, hash {graph.hash:016x}, "
           f"{graph.nr_shared_tensors} shared tensors, {graph.nr_operators} operators")
    for i, op in enumerate(graph.operators):
        more = ("nodes", "output dtype", "names", "priority", "parameters")
        yield (f"{i} at byte {op['offset']}: {op['name']} {op['inputs']} -> {op['outputs']}"
               + "".join(f"\n    {key}: {text_of(op[key])}" for key in more if op.get(key)))
    for output in graph.outputs:
        yield f"output: var {output['var']}, id {output['id']}"
    yield f"{graph.at} bytes"


def main(path, as_json):
    graph = GraphFile(pathlib.Path(path).read_bytes())
    if as_json:
        shown = ("features", "version", "hash", "nr_shared_tensors", "dtypes", "operators",
                 "outputs")
        print(json.dumps({key: getattr(graph, key) for key in shown}, indent=1))
    else:
        print("\n".join(describe(graph)))


if __name__ == "__main__":
    arguments = [word for word in sys.argv[1:] if word != "--json"]
    if len(arguments) != 1:
        sys.exit(__doc__)
    try:
        main(arguments[0], "--json" in sys.argv)
    except (OSError, BrokenFile) as error:
        sys.exit(f"{arguments[0]}: {error}")
