"""Which rows are nearest to (3, 3): among all of them, then among those of owner A."""
import numpy
import vekfind


def show(result):
    found = result.ids[0] != vekfind.INVALID_ID
    print("; ".join(f"id {row_id}, similarity {score:.3f}"
                    for row_id, score in zip(result.ids[0][found], result.scores[0][found])))


rows = numpy.array([[0, 0], [3, 4], [3, 1]], numpy.float32)
queries = numpy.array([[3, 3]], numpy.float32)
# The similarity is 1 / (1 + exp(scale * d2 + bias)) at squared distance d2.
with vekfind.Group(2, scale=1, bias=-4, tag_bytes=1) as group:
    group.insert(rows, ids=[7, 8, 9], tags=numpy.frombuffer(b"ABA", numpy.uint8))
    show(group.search(queries, k=2))
    show(group.search(queries, k=2, threshold=0.1, predicate=lambda query, tag: tag == b"A"))
    try:
        group.insert(rows, ids=[7, 8, 9], tags=numpy.frombuffer(b"ABA", numpy.uint8))
    except vekfind.VekfindError as error:
        print(error)
