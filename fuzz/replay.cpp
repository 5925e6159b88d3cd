/* Runs a fuzz target over files: replay DIRECTORY. Each file is also cut short at every length up
 * to a limit, as a parser reads too far most easily at the end. */

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

#include "fuzz.h"

/* In a block of its exact size, so that a read behind it is found. */
static void run(const std::vector<char> &bytes, size_t len)
{
    std::unique_ptr<uint8_t[]> block(new uint8_t[len]);
    std::copy_n(bytes.begin(), len, block.get());
    LLVMFuzzerTestOneInput(block.get(), len);
}

int main(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
        return 2;
    }
    LLVMFuzzerInitialize(&argc, &argv);

    size_t files = 0;
    for (const auto &entry : std::filesystem::directory_iterator(argv[1])) {
        std::ifstream file(entry.path(), std::ios::binary);
        std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
        run(bytes, bytes.size());
        for (size_t len = 0; len < std::min<size_t>(bytes.size(), 512); len++)
            run(bytes, len);
        files++;
    }
    printf("%zu files\n", files);
    return files > 0 ? 0 : 1;
}
