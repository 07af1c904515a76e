// Writes a few valid networks into a folder: seeds for the runtime's fuzz
// target, so that its replay covers real parsing and layers, not only noise.
#include <string>

#include "network_writer.h"

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    const std::string dir = argv[1];
    using netwriter::NetworkWriter;
    NetworkWriter()
        .data("in")
        .conv("c", "in", 4, 3, 3, 3, 1, 1, std::vector<float>(108, 0.1f),
              std::vector<float>(4, 0.0f))
        .relu("r", "c")
        .pool(5, "p", "r", 2, 2, 2, 2)
        .plain(21, "Y", {"p"})
        .save(dir + "/scan.bin");
    NetworkWriter()
        .data("in")
        .pool(6, "a", "in", 2, 2, 2, 2, {1, 1, 1, 1})
        .normcross("n", "a", 3, 1, 0.5f, 0.75f)
        .concat("cat", {"a", "n"}, 2)
        .element("e", {"a", "a"}, 1, {1, -1})
        .fc("f", {"e"}, {0}, 2, std::vector<float>(400, 0.01f), {0, 0})
        .plain(16, "Y", {"f"})
        .save(dir + "/mixed.bin");
    NetworkWriter()
        .data("in")
        .conv("d", "in", 3, 2, 2, 2, 2, 2, std::vector<float>(24, 0.5f), {0, 0}, {}, 1, 0, true)
        .softmax_map2("Y", "d", 2)
        .save(dir + "/deconv.bin");
    return 0;
}
