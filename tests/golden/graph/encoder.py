"""Graph files as make.py wants them, written in a way of its own: of the library's choices where it
says nothing else. docs/graph-file.md describes the format."""
import collections
import struct

SEED = 0x4B4E74B36B5D11

# Feature bits.
ALIGNED, TABLE, PRIORITIES, NODES, OUTPUT_DTYPES = 1, 2, 4, 8, 16

ELEMENTWISE = 0xebb39bdd9278b6da
INPLACE_ADD = 0xf11aa711766d98e8
OLD_REDUCE = 0x1039677b31b78c24
REDUCE = 0xcd196d64cbcb7ece
OLD_CONVERT = 0x100aebffc451691
OLD_QUANTISED_CONVERT = 0x3977a112730c6844
CONVERT = 0x72826b476173bf91
MATMUL = 0x59507e5620a94e88
BATCHED_MATMUL = 0x99309f37432041d3
SHARED = 0x4bb6b1881c563cf2
CONST = 0x60d52856bbd5a2b1
ARGMAX = 0xa001d36fb062bb67
ARGMIN = 0x3e87314f4f25baf3
ARGSORT = 0x2d0855a4f892fc9a
CUMSUM = 0x4a8ec0378366419
COND_TAKE = 0x97edb07c379b365c
TOP_K = 0x4bfd849ba331b3f
DIMSHUFFLE = 0xe2c8823996052a93
CONV = 0xbc193eef48c27b7e
CONV_DATA = 0xb9c1f1df5155061e
CONV_FILTER = 0xb1b87e381228d93a
MASK_CONV = 0x2e983067975c0ac3
MASK_PROPAGATE = 0x18b1e0951c8cb059
CONV3D = 0x36eef72ba63bd7e6
CONV3D_DATA = 0xb79ee11e62876d2e
CONV3D_FILTER = 0x1391dfb0a26ea51c
CONV_BIAS = 0xc2910e49be9f970a
POOLING = 0x498add8cddd348fe  # known, not available
HAVE_WORKSPACE = {REDUCE, OLD_REDUCE, ARGMAX, ARGMIN, ARGSORT, CUMSUM, TOP_K, COND_TAKE, MATMUL,
                  BATCHED_MATMUL, CONV, CONV_DATA, CONV_FILTER, MASK_CONV, MASK_PROPAGATE, CONV3D,
                  CONV3D_DATA, CONV3D_FILTER, CONV_BIAS}

RELU, ABS, ADD, MUL = 0, 1, 16, 21
FLOAT32, UINT8, INT8, INT16, INT32, INT_B1, INT_B2, INT_B4, BYTE, FLOAT16 = range(10)
QUANTISED_ASYMM, QUANTISED_S32, QUANTISED_S8 = 100000, 100001, 100002


def xxh64(data, seed):
    """XXH64 as in "xxHash fast digest algorithm", Yann Collet."""
    p1, p2, p3, p4, p5 = (0x9E3779B185EBCA87, 0xC2B2AE3D27D4EB4F, 0x165667B19E3779F9,
                          0x85EBCA77C2B2AE63, 0x27D4EB2F165667C5)
    mask = 2**64 - 1

    def rotate(x, bits):
        return (x << bits | x >> (64 - bits)) & mask

    def step(acc, lane):
        return rotate((acc + lane * p2) & mask, 31) * p1 & mask

    at = 0
    acc = seed + p5
    if len(data) >= 32:
        accs = [(seed + p1 + p2) & mask, (seed + p2) & mask, seed, (seed - p1) & mask]
        for at in range(0, len(data) - 31, 32):
            accs = [step(a, lane) for a, lane in zip(accs, struct.unpack_from("<4Q", data, at))]
        at += 32
        acc = sum(rotate(a, bits) for a, bits in zip(accs, (1, 7, 12, 18)))
        for a in accs:
            acc = ((acc ^ step(0, a)) * p1 + p4) & mask
    acc = (acc + len(data)) & mask
    while len(data) - at >= 8:
        acc = (rotate(acc ^ step(0, *struct.unpack_from("<Q", data, at)), 27) * p1 + p4) & mask
        at += 8
    if len(data) - at >= 4:
        acc ^= struct.unpack_from("<I", data, at)[0] * p1 & mask
        acc = (rotate(acc, 23) * p2 + p3) & mask
        at += 4
    for byte in data[at:]:
        acc = rotate(acc ^ byte * p5 & mask, 11) * p1 & mask
    acc = (acc ^ acc >> 33) * p2 & mask
    acc = (acc ^ acc >> 29) * p3 & mask
    return acc ^ acc >> 32


def varint(number):
    groups = [number & 0x7F]
    while number := number >> 7:
        groups.insert(0, 0x80 | number & 0x7F)
    return bytes(groups)


def string(text):
    data = text.encode()
    return varint(len(data)) + data


def floats(*values):
    return struct.pack(f"<{len(values)}f", *values)


def quantised(number, scale, zero_point=None):
    """A data type; a plain one is its number."""
    return varint(number) + floats(scale) + (b"" if zero_point is None else bytes([zero_point]))


def dtype_form(dtype):
    return dtype if isinstance(dtype, bytes) else varint(dtype)


Tensor = collections.namedtuple("Tensor", "dtype shape value name node",
                                defaults=(None, "", "cpu:default"))
# `params`: bytes and tensors; `nodes`: the configured ones; `by_count`: the input count stands in a
# number of its own, also where three bits would do.
Op = collections.namedtuple(
    "Op", "id inputs params outputs names nodes dtype priority by_count end",
    defaults=((), (), 1, (), (), None, 0, False, b"e"))


def shared(*tensor, **more):
    tensor = Tensor(*tensor)
    return Op(SHARED, (), (bytes([tensor.value is not None]), tensor), **more)


def constant(*tensor):
    """As the writer leaves it: the node is configured, because a constant is made for a node."""
    tensor = Tensor(*tensor)
    return Op(CONST, (), (tensor,), nodes=(tensor.node,))


def elementwise(mode, *inputs, **more):
    return Op(ELEMENTWISE, inputs, (struct.pack("<I", mode),), **more)


def most_frequent(keys, limit):
    counts = collections.Counter(keys)
    return sorted(counts, key=lambda key: (-counts[key], key))[:limit]


class GraphFile:
    """`outputs`: positions in the var table. `marks` says where things stand in `data`: of the last
    ones where an operator has several."""

    def __init__(self, ops, outputs=(), features=TABLE | NODES, shared_count=None,
                 magic=b"orb0001", first_id=0):
        with_dtype = [i for i, op in enumerate(ops) if op.dtype is not None]
        self.features = features | (OUTPUT_DTYPES if with_dtype else 0)
        self.types = most_frequent((op.id for op in ops), 6)
        self.nr_listed_types = len(self.types)
        self.dtypes = range(7)
        self.nodes, self.var_ids, self.next_id, self.marks = [], [], first_id, {}

        self.data = bytearray()
        self.put(magic + (bytes([self.features]) if len(magic) == 7 else b""), "magic")
        self.put(struct.pack("<I", 702600) if features & NODES else b"")
        self.put(bytes(16), "hash")
        self.put(b"".join(struct.pack("<Q", id) for id in self.types))
        self.put(bytes(8) if len(self.types) < 6 else b"")
        if features & TABLE:
            self.dtypes = most_frequent((piece.dtype for op in ops for piece in op.params
                                         if isinstance(piece, Tensor)
                                         and isinstance(piece.dtype, int)), 7)
            self.put(bytes(self.dtypes + [8] * 7)[:7])
        if with_dtype:
            self.put(b"".join(varint(i) for i in [len(with_dtype)] + with_dtype), "dtype operators")
        self.put(varint(len(ops)), "count")
        for i, op in enumerate(ops):
            self.put_operator(i, op)
        self.put(varint(len(outputs)), "outputs")
        self.put(b"".join(varint(var) + varint(self.var_ids[var]) for var in outputs))

        if shared_count is None:
            shared_count = sum(op.id == SHARED and op.params[0] == b"\1" for op in ops)
        at = self.marks["hash"]
        digest = xxh64(bytes(self.data[:7]) + bytes(16) + bytes(self.data[at + 16:]), SEED) or 1
        self.data[at:at + 16] = struct.pack("<QQ", digest, shared_count)

    def put(self, data, mark=None):
        if mark is not None:
            self.marks[mark] = len(self.data)
        self.data += data

    def put_operator(self, i, op):
        place = self.types.index(op.id) if op.id in self.types else None
        selector = 7 if place is None else place if place < self.nr_listed_types else 6
        many = op.by_count or len(op.inputs) > 6
        self.put(bytes([selector | bool(op.names) << 4 | (7 if many else len(op.inputs)) << 5]),
                 ("operator", i))
        if selector == 7:
            self.put(struct.pack("<Q", op.id))
            self.types.append(op.id)
        elif selector == 6:
            self.put(varint(place))
        self.put(varint(len(op.inputs)) if many else b"", ("input count", i))
        self.put(b"".join(varint(len(self.var_ids) - k) for k in op.inputs), ("inputs", i))
        if self.features & NODES:
            self.put_config_nodes(i, op.nodes)
        self.put(b"" if op.dtype is None else dtype_form(op.dtype))
        for piece in op.params:
            if isinstance(piece, Tensor):
                self.put_tensor(piece)
            else:
                self.put(piece, ("param", i))
        self.put(b"".join(string(name) for name in op.names))
        self.put(struct.pack("<i", op.priority) if self.features & PRIORITIES else b"")
        self.put(op.end, ("end", i))
        # As a graph numbers its objects: the operator, its outputs, its workspace.
        self.var_ids += range(self.next_id + 1, self.next_id + 1 + op.outputs)
        self.next_id += 1 + op.outputs + (op.id in HAVE_WORKSPACE)

    def put_config_nodes(self, i, nodes):
        self.marks["nodes", i] = len(self.data)
        if isinstance(nodes, bytes):
            self.put(nodes)
        elif len(nodes) != 1:
            self.put(bytes([1 | len(nodes) << 2]) + b"".join(string(node) for node in nodes))
        elif nodes[0] in self.nodes[:64]:
            self.put(bytes([2 | self.nodes.index(nodes[0]) << 2]))
        else:
            self.put(b"\0" + string(nodes[0]))
            self.nodes.append(nodes[0])

    def put_tensor(self, tensor):
        dtype = self.dtypes.index(tensor.dtype) if tensor.dtype in self.dtypes else 7
        rank = {1: 0, 2: 1, 4: 2}.get(len(tensor.shape), 3)
        on_first = tensor.node in self.nodes[:1]
        self.put(bytes([bool(tensor.name) | (tensor.value is not None) << 1 | on_first << 2
                        | rank << 3 | dtype << 5]))
        self.put(string(tensor.name) if tensor.name else b"")
        if not on_first and tensor.node in self.nodes[:128]:
            self.put(bytes([0x80 | self.nodes.index(tensor.node)]))
        elif not on_first:
            self.put(string(tensor.node))
            self.nodes.append(tensor.node)
        self.put(varint(len(tensor.shape)) if rank == 3 else b"")
        self.put(dtype_form(tensor.dtype) if dtype == 7 else b"")
        self.put(b"".join(varint(length) for length in tensor.shape))
        if tensor.value is not None:
            distance = -len(self.data) % 32
            if self.features & ALIGNED and len(tensor.value) >= 8 * distance:
                self.put(b"\xAA" * distance)
            self.put(tensor.value)
