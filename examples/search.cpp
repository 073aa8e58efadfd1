// Which rows are nearest to (3, 3): among all of them, then among those of owner A.
#include <cstdio>
#include <vector>
#include <vekfind/vekfind.hpp>

static void print(const vekfind::SearchResult& result) {
    for (size_t i = 0; i < result.ids.size() && result.ids[i] != VEK_INVALID_ID_VALUE; ++i)
        std::printf("%sid %d, similarity %.3f", i > 0 ? "; " : "", static_cast<int>(result.ids[i]),
                    static_cast<double>(result.scores[i]));
    std::printf("\n");
}

int main() {
    vekfind::Settings settings;
    settings.dim = 2;    // floats a feature
    settings.scale = 1;  // similarity is 1 / (1 + exp(scale * d2 + bias))
    settings.bias = -4;  //   at squared distance d2
    settings.tag_size = 1;
    vekfind::Group group(settings);

    const std::vector<uint64_t> ids = {7, 8, 9};
    const std::vector<float> rows = {0, 0, 3, 4, 3, 1}, query = {3, 3};
    const std::vector<uint8_t> owners = {'A', 'B', 'A'};
    group.insert(ids, rows, owners);
    print(group.search(query, 2));

    vekfind::SearchOptions options;
    options.threshold = 0.1f;
    print(group.search(query, 2, options, [](size_t, auto tag) { return tag.data()[0] == 'A'; }));

    try {
        group.insert(ids, rows, owners);
    } catch (const vekfind::Error& error) {
        std::printf("%s\n", error.what());
    }
}
