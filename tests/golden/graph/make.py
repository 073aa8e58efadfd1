#!/usr/bin/env python3
"""Writes the golden graph files beside this script. faults.txt says where the bad ones are wrong,
redumps.txt what the library writes of a good one that it has read. They are kept as they are: a
change of a file means that files of users would load differently."""
import pathlib
import struct

from encoder import *  # names of numbers, mostly

HERE = pathlib.Path(__file__).parent
RELU, ABS, ADD = 0, 1, 16
REDUCE_FORM, CUMSUM_FORM, MATMUL_FORM = "<IiI", "<iBBxx", "<BBxxI"
CONV_FORM, CONV3D_FORM = "<10I", "<13I"
MATRIX_X = shared(FLOAT32, (2, 3), None, "x")
MATRIX_Y = shared(FLOAT32, (2, 3), None, "y")


def op(id, inputs, form="", *values, **more):
    return Op(id, inputs, (struct.pack(form, *values),), **more)


def types_graph(*more):
    """A chain of six types, each more than once."""
    ops = [MATRIX_X, MATRIX_Y, elementwise(ADD, 0, 1)]
    following = [
        elementwise(RELU), elementwise(ABS), op(CUMSUM, (), CUMSUM_FORM, 1, 0, 1),
        op(CUMSUM, (), CUMSUM_FORM, -1, 1, 0), op(CONVERT, (), "B", FLOAT16),
        op(CONVERT, (), "B", FLOAT32), op(REDUCE, (), REDUCE_FORM, 1, 1, 0),
        op(REDUCE, (), REDUCE_FORM, 4, 0, 0), op(ARGMAX, (), "<i", 0), op(ARGMAX, (), "<i", 1)]
    for follower in following + list(more):
        ops.append(follower._replace(inputs=(len(ops) - 1,)))
    return GraphFile(ops, [len(ops) - 1])


def every_operator():
    def pair(name, number):
        """What the library calls two outputs."""
        return {"outputs": 2, "names": [f"{name}[{number}]:o{i}" for i in range(2)]}

    return GraphFile([
        MATRIX_X, constant(FLOAT32, (2, 3), floats(1, 2, 3, 4, 5, 6)),
        elementwise(ADD, 0, 1), op(REDUCE, (2,), REDUCE_FORM, 5, 1, 2),
        Op(CONVERT, (3,), (quantised(QUANTISED_ASYMM, 0.5, 7),)),
        shared(FLOAT32, (2, 3), floats(0, -1, 1, 8, -8, 0.25), "p"), Op(INPLACE_ADD, (5, 0)),
        op(MATMUL, (2, 6), MATMUL_FORM, 0, 1, 0),
        op(DIMSHUFFLE, (2,), "<II3i", 2, 3, -1, 0, 1),
        op(BATCHED_MATMUL, (8, 8), MATMUL_FORM, 1, 0, 3),
        op(ARGMAX, (2,), "<i", 0), op(ARGMIN, (2,), "<i", 1),
        op(ARGSORT, (2,), "<I", 1, **pair("argsort", 29)),
        op(CUMSUM, (2,), CUMSUM_FORM, 0, 1, 1),
        op(COND_TAKE, (2, 6), "<I2f", 4, 0.5, 0.125, **pair("cond_take", 36)),
        op(TOP_K, (6,), "<Ii", 2, -2, **pair("top_k", 40)),
    ] + every_convolution(2, 19), [4, 7, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18] + [*range(20, 32)])


def every_convolution(matrix, var):
    """Of a matrix {2, 3}, where `var` is the next."""
    # Padded by 1 on both axes, with steps of 2 and 1, a filter {2, 3} gives a matrix {2, 3} again.
    flat = 1, 1, 1, 2, 1, 1, 1, 0, 0, 3
    deep = 0, 0, 1, 1, 1, 2, 1, 1, 1, 1, 0, 0, 0
    image, volume = var, var + 9
    return [
        op(DIMSHUFFLE, (matrix,), "<II4i", 2, 4, -1, -1, 0, 1),
        op(CONV, (image, image), CONV_FORM, *flat),
        op(CONV_DATA, (image, image + 1), CONV_FORM, *flat),
        op(CONV_DATA, (image, image + 1, image), CONV_FORM, *flat),
        op(CONV_FILTER, (image, image + 1, image), CONV_FORM, *flat),
        constant(FLOAT32, (1, 1, 1, 1), floats(0.5)),
        op(CONV_BIAS, (image, image, image + 5), CONV_FORM + "I", *flat, 5),
        op(MASK_CONV, (image, image, matrix), CONV_FORM, *flat),
        op(MASK_PROPAGATE, (matrix,), "<8I", 0, 1, 1, 2, 2, 3, 1, 1),
        op(DIMSHUFFLE, (matrix,), "<II5i", 2, 5, -1, -1, -1, 0, 1),
        op(CONV3D, (volume, volume), CONV3D_FORM, *deep),
        op(CONV3D_DATA, (volume, volume + 1), CONV3D_FORM, *deep),
        op(CONV3D_FILTER, (volume, volume + 1, volume), CONV3D_FORM, *deep),
    ]


def dtypes_graph():
    """Float16 is the most frequent; of the others the lowest seven numbers but one are listed."""
    dtypes = [FLOAT16, FLOAT16, BYTE, INT_B4, INT_B2, INT_B1, INT32, INT16, INT8, UINT8, FLOAT32,
              quantised(QUANTISED_ASYMM, 0.25, 128), quantised(QUANTISED_S32, 3),
              quantised(QUANTISED_S8, 0.1)]
    return GraphFile([shared(dtype, (4,), None, str(i)) for i, dtype in enumerate(dtypes)],
                     range(len(dtypes)))


def nodes_graph():
    """Config bytes reach 63 places, tensor records more. The last but one is the 64th node again,
    the last the 65th, which must be spelled again."""
    texts = [f"cpu0:{stream}" for stream in range(65)] + ["cpu0:63", "cpu0:64"]
    return GraphFile([shared(INT8, (1,), None, str(i), text, nodes=(text,))
                      for i, text in enumerate(texts)], range(len(texts)))


def values_graph(features):
    """Values of eight times the distance to the next multiple of 32, and of a byte less."""
    return GraphFile([shared(UINT8, (40,), bytes(range(40)), "a" * 21),
                      shared(UINT8, (39,), bytes(range(39)), "b" * 12),
                      shared(UINT8, (1,), b"\7", "c")], [0, 1, 2], features)


X = shared(FLOAT32, (3,), None, "x")
C = constant(FLOAT32, (3,), floats(1, 2, 3))
SUM = elementwise(ADD, 0, 1, names=("sum",))
ADDITION = GraphFile([X, C, SUM], [2])
SHUFFLE = op(DIMSHUFFLE, (), "<IIii", 2, 2, 1, 0)

GOOD = {
    "empty": GraphFile([]),
    "add": ADDITION,
    "featureless": GraphFile([X, C, SUM], [2], 0, magic=b"orb0000a", first_id=300),
    "node-list": GraphFile([X, C._replace(nodes=b"\5" + string("cpu:default")), SUM], [2]),
    "input-count": GraphFile([X, C, SUM._replace(by_count=True)], [2]),
    "every-operator": every_operator(),
    "types-6": types_graph(),
    "types-7": types_graph(SHUFFLE, SHUFFLE),
    "types-8": types_graph(SHUFFLE, SHUFFLE, op(ARGMIN, (), "<i", 0)),
    "dtypes": dtypes_graph(),
    "ranks": GraphFile([shared(INT32, (2,) * rank, None, str(rank)) for rank in range(1, 8)],
                       range(7)),
    "no-elements": GraphFile([shared(INT32, (3, 0), b"", "p"), constant(INT8, (0,), b"")], [0, 1]),
    "nodes": nodes_graph(),
    "aligned": values_graph(ALIGNED | TABLE | NODES),
    "packed": values_graph(TABLE | NODES),
    "older": GraphFile([MATRIX_X, op(OLD_REDUCE, (0,), "<Ii", 3, 1),
                        op(OLD_CONVERT, (1,), "<I", INT32),
                        op(OLD_QUANTISED_CONVERT, (1,), "<IfB", QUANTISED_ASYMM, 0.5, 9)], [2, 3]),
    "newer": GraphFile([MATRIX_X, op(REDUCE, (0,), REDUCE_FORM, 3, 1, 0),
                        op(CONVERT, (1,), "B", INT32),
                        Op(CONVERT, (1,), (quantised(QUANTISED_ASYMM, 0.5, 9),))], [2, 3]),
    "priorities": GraphFile([X._replace(priority=-2), C, SUM._replace(priority=2**31 - 1)], [2],
                            TABLE | NODES | PRIORITIES),
    "names": GraphFile([shared(FLOAT32, (3,), None, "first", names=("first",)),
                        elementwise(RELU, 0, names=("second: \u00e9",))], [0, 1]),
    "output-dtype": GraphFile([
        shared(quantised(QUANTISED_S8, 0.5), (2, 2), None, "a"),
        shared(quantised(QUANTISED_S8, 0.25), (2, 2), None, "b"),
        op(MATMUL, (0, 1), MATMUL_FORM, 0, 0, 2, dtype=quantised(QUANTISED_S32, 0.125))], [2]),
    "shared": GraphFile([
        shared(FLOAT32, (2,), floats(1.5, -0.0), "p"), elementwise(ABS, 0),
        shared(INT8, (3,), b"\x80\0\x7f", "q"), op(CONVERT, (2,), "B", FLOAT32)], [1, 3]),
}
# What the writer makes of a file that was loaded: the same bytes, or those of another one.
REDUMPED = {"featureless": "add", "node-list": "add", "aligned": "packed", "input-count": "add",
            "older": "newer"}

TRUNCATED = "the file ends inside a field"
NUMBER = "a number has more than 64 bits"
STRING = "a string is longer than 1048576 bytes"
COUNT = "a count is larger than the rest of the file can hold"
INDEX = "an index is outside its table"
NODE = "a node cannot be loaded"
DTYPE = "a data type is not known, or its scale is not finite and positive"
SHAPE = "a shape has no or too many axes, or is too large"
VALUE = "a tensor has no value, or is too large to be without one"
OPERATOR = "the operator does not take these inputs or parameters"
SHARED_COUNT = "the shared tensors are not as many as the header says"


def fault(text, file, mark, skip=0, put=b"", cut=None, shows=0):
    """The file with a fault so many bytes behind the mark, where other bytes may be put; cut off
    so many bytes behind the fault, which shows in the field so many bytes behind it."""
    at = file.marks[mark] + skip
    data = bytes(file.data[:at]) + put + bytes(file.data[at + len(put):])
    where = f"byte {at + shows}" + (f", operator {mark[1]}" if isinstance(mark, tuple) else "")
    return data if cut is None else data[:at + cut], f"{where}: {text}"


def second(text, op, mark="param", skip=0, cut=None, shows=0):
    """The fault is in an operator behind a good one."""
    return fault(text, GraphFile([X, op], shared_count=op.params[:1] == (b"\1",)), (mark, 1), skip,
                 b"", cut, shows)


def tensor(text, *pieces, role=0, shows=0):
    """An input or parameter whose record is good up to the last piece."""
    good = bytes([pieces[0]]) + b"".join(pieces[1:-1])
    return second(text, Op(SHARED, (), (bytes([role]), good + pieces[-1])), "param", len(good),
                  None, shows)


# Of a tensor's first byte, by field.
NAMED, VALUED, ON_FIRST = 1, 2, 4
RANK1, RANK2, RANK_FOLLOWS = 0, 1 << 3, 3 << 3
DTYPE_FOLLOWS = 7 << 5
PARAMETERS = [shared(INT8, (1,), b"\5"), shared(INT8, (1,), b"\6")]

BAD = {
    "empty-file": (b"", "byte 0: " + TRUNCATED),
    "cut-header": (bytes(ADDITION.data[:19]), "byte 12: " + TRUNCATED),
    "magic": fault("this is not a graph file", GraphFile([], magic=b"orb0002"), "magic"),
    "reserved-bit": fault("a reserved feature bit is set", ADDITION, "magic", 7, b"\x2a",
                          shows=-7),
    "zero-hash": fault("the graph hash is 0", ADDITION, "hash", 0, bytes(8)),
    "operator-count": fault(COUNT, ADDITION, "count", 0, b"\x7f"),
    "output-count": fault(COUNT, ADDITION, "outputs", 0, b"\x7f"),
    "output-index": fault(INDEX, ADDITION, "outputs", 1, b"\3"),
    "dtype-operator-count": fault(COUNT, GOOD["output-dtype"], "dtype operators", 0, b"\x7f"),
    "dtype-operator": fault(INDEX, GOOD["output-dtype"], "dtype operators", 1, b"\3", shows=1),
    "shared-count-huge": fault(COUNT, ADDITION, "hash", 8, b"\xff" * 8),
    "shared-count-high": fault(SHARED_COUNT, GraphFile(PARAMETERS, [0], shared_count=3),
                               "outputs", 2),
    "shared-count-low": fault(SHARED_COUNT, GraphFile(PARAMETERS, [0], shared_count=1),
                              ("param", 1)),
    "unknown-id": second("the operator's id is not known", Op(0x1122334455667788), "operator"),
    "unavailable-id": second("the operator is known, but not available", Op(POOLING, (0,)),
                             "operator"),
    "type-index": fault(INDEX, ADDITION, ("operator", 1), 0, b"\3"),
    "input-0": second(INDEX, elementwise(RELU, 1), "inputs"),
    "input-beyond": second(INDEX, elementwise(RELU, -1), "inputs"),
    "input-count": second(COUNT, elementwise(RELU, *[0] * 100), "input count", cut=50),
    "inputs": second(OPERATOR, op(MATMUL, (0,), MATMUL_FORM, 0, 0, 0), skip=4),
    "mode": second(OPERATOR, elementwise(1000, 0)),
    "zero-step": second(OPERATOR, op(MASK_PROPAGATE, (0,), "<8I", 0, 0, 1, 1, 1, 1, 1, 0), skip=28),
    "flag": second(OPERATOR, op(CUMSUM, (0,), CUMSUM_FORM, 0, 0, 2), skip=5),
    "role": second(OPERATOR, Op(SHARED, (), (b"\2",))),
    "vector-count": second(COUNT, op(DIMSHUFFLE, (0,), "<II", 1, 1000), skip=4),
    "older-dtype": second(DTYPE, op(OLD_CONVERT, (0,), "<I", QUANTISED_S8)),
    "end-mark": second("the record does not end with its mark",
                       elementwise(RELU, 0, end=b"f"), "end"),
    "config-node-index": second(INDEX, elementwise(RELU, 0, nodes=b"\6"), "nodes"),
    "config-node": second(NODE, elementwise(RELU, 0, nodes=b"\0" + string("gpu0:0")), "nodes", 2),
    "node": tensor(NODE, RANK1, b"\7", b"opencl0"),
    "node-number": tensor(NODE, RANK1, b"\x0d", b"cpu4294967296"),
    "node-index": tensor(INDEX, RANK1, b"\x81"),
    "string": tensor(STRING, NAMED | ON_FIRST, varint(1048577)),
    "string-cut": tensor(TRUNCATED, NAMED | ON_FIRST, varint(1000), b"name", shows=-2),
    "rank-0": tensor(SHAPE, ON_FIRST | RANK_FOLLOWS, b"\0"),
    "rank-8": tensor(SHAPE, ON_FIRST | RANK_FOLLOWS, b"\x08"),
    "shape": tensor(SHAPE, ON_FIRST | RANK2, varint(2**40), varint(2**40)),
    "number": tensor(NUMBER, ON_FIRST | RANK1, b"\x82" + b"\x80" * 8 + b"\0"),
    "number-longer": tensor(NUMBER, ON_FIRST | RANK1, b"\x80" * 10 + b"\0"),
    "dtype": tensor(DTYPE, ON_FIRST | DTYPE_FOLLOWS, b"\x0a"),
    "scale-nan": tensor(DTYPE, ON_FIRST | DTYPE_FOLLOWS, varint(QUANTISED_S8),
                        floats(float("nan"))),
    "scale-0": tensor(DTYPE, ON_FIRST | DTYPE_FOLLOWS, varint(QUANTISED_S32), floats(0)),
    "no-value": tensor(VALUE, ON_FIRST | RANK1, b"\3", role=1),
    "value-huge": tensor(VALUE, ON_FIRST | RANK1, varint(2**29)),
    "cut-value": tensor(TRUNCATED, VALUED | ON_FIRST | RANK1, varint(100), b"value", shows=-1),
}

if __name__ == "__main__":
    for name, graph in GOOD.items():
        (HERE / f"good-{name}.graph").write_bytes(graph.data)
    for name, (data, _) in BAD.items():
        (HERE / f"bad-{name}.graph").write_bytes(data)
    (HERE / "faults.txt").write_text(
        "".join(f"bad-{name}.graph {text}\n" for name, (_, text) in BAD.items()))
    (HERE / "redumps.txt").write_text(
        "".join(f"good-{name}.graph good-{REDUMPED.get(name, name)}.graph\n" for name in GOOD))
