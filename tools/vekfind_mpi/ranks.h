// The processes of one run of vekfind-mpi. Every member function but `rank` and `size` is called by
// all ranks, in the same order, by the thread that made the object.
#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "search/result.h"

namespace mpi {

// A failure that all ranks know of, so that each of them ends.
class AgreedFailure final : public std::runtime_error {
public:
    AgreedFailure(const std::string& text, int status)
        : std::runtime_error(text), exit_status(status) {}

    const int exit_status;
};

class Ranks {
public:
    Ranks(int& nr_words, char**& words);
    ~Ranks();
    Ranks(const Ranks&) = delete;
    Ranks& operator=(const Ranks&) = delete;

    int rank() const { return m_rank; }
    int size() const { return m_size; }
    bool is_first() const { return m_rank == 0; }

    // Has each rank do its share of a step. When one fails, all throw the AgreedFailure of the
    // lowest rank that did: nobody waits for a rank that has left.
    void together(const std::function<void()>& step) const;

    // What rank 0 has is afterwards in the memory of all.
    void broadcast(void* bytes, size_t count) const;
    template <typename T>
    void broadcast(std::vector<T>& values) const {
        broadcast(values.data(), values.size() * sizeof(T));
    }
    uint64_t minimum(uint64_t number) const;
    uint64_t maximum(uint64_t number) const;

    // Each number goes to the rank that `owner_of` tells; what comes back are those that came here.
    std::vector<uint64_t> exchange(const std::vector<uint64_t>& numbers,
                                   const std::function<int(uint64_t)>& owner_of) const;

    // Merges the results of all ranks into that of rank 0, two by two: as many steps as the number
    // of ranks can be halved. What the others have left is of no use.
    void merge(search::Result& result) const;

private:
    int m_rank = 0, m_size = 1;
};

// Ends all processes at once, for a failure that only this rank knows of.
[[noreturn]] void abort_all(int status);

}  // namespace mpi
