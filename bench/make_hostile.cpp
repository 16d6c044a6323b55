// Writes one hostile file for the benchmark: make_hostile SHAPE BYTES FILE.
// With --list, prints each shape's name, extension and description.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/fixtures/HostileShapes.h"

int main(int argc, char** argv) {
    using sondrel::fixtures::hostileShapes;
    if (argc == 2 && std::string(argv[1]) == "--list") {
        for (const auto& s : hostileShapes()) std::printf("%s\t%s\t%s\n", s.name, s.extension, s.what);
        return 0;
    }
    if (argc != 4) {
        std::fprintf(stderr, "usage: make_hostile --list | SHAPE BYTES FILE\n");
        return 2;
    }
    const auto* shape = sondrel::fixtures::findHostileShape(argv[1]);
    if (!shape) {
        std::fprintf(stderr, "make_hostile: unknown shape %s\n", argv[1]);
        return 2;
    }
    const int fd = ::open(argv[3], O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        std::perror(argv[3]);
        return 1;
    }
    const bool ok = shape->write(fd, std::strtoull(argv[2], nullptr, 10));
    if (::close(fd) != 0 || !ok) {
        std::fprintf(stderr, "make_hostile: writing %s failed\n", argv[3]);
        return 1;
    }
    return 0;
}
