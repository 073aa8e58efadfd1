// What the library has to say about graph files, to hold the Python reader and
// the golden files against it: without arguments the ids of the operators that
// it can load, with a file what is wrong with it, with a second one it dumps
// there what it loads from the first.
#include <cinttypes>
#include <cstdio>

#include "serialization/graph_dumper.h"
#include "serialization/graph_inspector.h"
#include "serialization/graph_loader.h"
#include "serialization/operator_registry.h"

namespace {

int list_ids() {
  for (const orb::OperatorRecord &record :
       orb::OperatorRegistry::instance().records()) {
    if (record.load)
      std::printf("0x%016" PRIx64 "\n", record.persist_id);
  }
  return 0;
}

int read(const char *path, const char *copy_path) {
  const auto facts = orb::inspect_graph_file(*orb::InputFile::open(path));
  if (copy_path) {
    const orb::GraphLoadResult loaded =
        orb::GraphLoader(orb::InputFile::open(path)).load();
    orb::GraphDumpConfig config;
    config.keep_priorities = facts.header.has(orb::graph_feature::PRIORITIES);
    orb::GraphDumper(orb::OutputFile::create(copy_path))
        .dump(loaded.output_vars, config);
  }
  return 0;
}

} // namespace

int main(int argc, char **argv) {
  if (argc < 2)
    return list_ids();
  try {
    return read(argv[1], argc > 2 ? argv[2] : nullptr);
  } catch (const orb::GraphFileError &error) {
    std::fprintf(stderr, "%s: %s\n", argv[1], error.what());
    return 1;
  }
}
