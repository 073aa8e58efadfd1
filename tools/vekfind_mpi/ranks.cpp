#include "vekfind_mpi/ranks.h"

#include <mpi.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <new>

#include "common/failure.h"

namespace mpi {

namespace {

constexpr int TAG = 0;
// At most so many numbers leave a rank at once in an exchange, and so many bytes in a broadcast:
// counts are of type int.
constexpr size_t PIECE = size_t{1} << 22;

struct Failure {
    int status = 0;
    std::string text;
};

Failure failure_of(const std::function<void()>& step) {
    try {
        step();
    } catch (const tools::BadUse& error) {
        return {2, error.what()};
    } catch (const std::bad_alloc&) {
        return {1, "memory is lacking"};
    } catch (const std::exception& error) {
        return {1, error.what()};
    }
    return {};
}

uint64_t combined(uint64_t number, MPI_Op operation) {
    uint64_t result = 0;
    MPI_Allreduce(&number, &result, 1, MPI_UINT64_T, operation, MPI_COMM_WORLD);
    return result;
}

}  // namespace

Ranks::Ranks(int& nr_words, char**& words) {
    int provided = 0;
    MPI_Init_thread(&nr_words, &words, MPI_THREAD_FUNNELED, &provided);
    MPI_Comm_rank(MPI_COMM_WORLD, &m_rank);
    MPI_Comm_size(MPI_COMM_WORLD, &m_size);
}

Ranks::~Ranks() {
    MPI_Finalize();
}

void Ranks::together(const std::function<void()>& step) const {
    Failure failure = failure_of(step);
    int first_failed = failure.status != 0 ? m_rank : INT_MAX;
    MPI_Allreduce(MPI_IN_PLACE, &first_failed, 1, MPI_INT, MPI_MIN, MPI_COMM_WORLD);
    if (first_failed == INT_MAX)
        return;
    int numbers[2] = {failure.status, static_cast<int>(failure.text.size())};
    MPI_Bcast(numbers, 2, MPI_INT, first_failed, MPI_COMM_WORLD);
    failure.text.resize(static_cast<size_t>(numbers[1]));
    MPI_Bcast(failure.text.data(), numbers[1], MPI_CHAR, first_failed, MPI_COMM_WORLD);
    throw AgreedFailure("rank " + std::to_string(first_failed) + ": " + failure.text, numbers[0]);
}

void Ranks::broadcast(void* bytes, size_t count) const {
    auto* next = static_cast<unsigned char*>(bytes);
    for (; count > 0; count -= std::min(count, PIECE), next += PIECE)
        MPI_Bcast(next, static_cast<int>(std::min(count, PIECE)), MPI_BYTE, 0, MPI_COMM_WORLD);
}

uint64_t Ranks::minimum(uint64_t number) const {
    return combined(number, MPI_MIN);
}

uint64_t Ranks::maximum(uint64_t number) const {
    return combined(number, MPI_MAX);
}

std::vector<uint64_t> Ranks::exchange(const std::vector<uint64_t>& numbers,
                                      const std::function<int(uint64_t)>& owner_of) const {
    const auto nr_ranks = static_cast<size_t>(m_size);
    std::vector<uint64_t> received;
    const uint64_t nr_rounds = maximum((numbers.size() + PIECE - 1) / PIECE);
    for (uint64_t round = 0; round < nr_rounds; ++round) {
        std::vector<std::vector<uint64_t>> leaving(nr_ranks);
        const size_t end = std::min<uint64_t>(numbers.size(), (round + 1) * PIECE);
        for (size_t i = std::min<uint64_t>(numbers.size(), round * PIECE); i < end; ++i)
            leaving[static_cast<size_t>(owner_of(numbers[i]))].push_back(numbers[i]);

        std::vector<uint64_t> packed;
        std::vector<int> counts, offsets, counts_in(nr_ranks), offsets_in(nr_ranks);
        for (const std::vector<uint64_t>& part : leaving) {
            offsets.push_back(static_cast<int>(packed.size()));
            counts.push_back(static_cast<int>(part.size()));
            packed.insert(packed.end(), part.begin(), part.end());
        }
        MPI_Alltoall(counts.data(), 1, MPI_INT, counts_in.data(), 1, MPI_INT, MPI_COMM_WORLD);
        int nr_in = 0;
        for (size_t rank = 0; rank < nr_ranks; ++rank) {
            offsets_in[rank] = nr_in;
            nr_in += counts_in[rank];
        }
        const size_t before = received.size();
        received.resize(before + static_cast<size_t>(nr_in));
        MPI_Alltoallv(packed.data(), counts.data(), offsets.data(), MPI_UINT64_T,
                      received.data() + before, counts_in.data(), offsets_in.data(), MPI_UINT64_T,
                      MPI_COMM_WORLD);
    }
    return received;
}

void Ranks::merge(search::Result& result) const {
    MPI_Datatype match;
    MPI_Type_contiguous(static_cast<int>(sizeof(search::Match)), MPI_BYTE, &match);
    MPI_Type_commit(&match);
    const auto count = static_cast<int>(result.matches.size());
    search::Result other(result.nr_query, result.k);
    for (int distance = 1; distance < m_size; distance *= 2) {
        if (m_rank % (2 * distance) != 0) {
            MPI_Send(result.matches.data(), count, match, m_rank - distance, TAG, MPI_COMM_WORLD);
            break;
        }
        if (m_rank + distance < m_size) {
            MPI_Recv(other.matches.data(), count, match, m_rank + distance, TAG, MPI_COMM_WORLD,
                     MPI_STATUS_IGNORE);
            search::merge(result, other);
        }
    }
    MPI_Type_free(&match);
}

void abort_all(int status) {
    MPI_Abort(MPI_COMM_WORLD, status);
    std::abort();
}

}  // namespace mpi
