// The baseline of the commit benchmark: the least a rename tool must do, a
// plain loop of lstat + rename(2) over a folder's files, in C++ without Qt.
//
//   rename_loop make DIR PREFIX COUNT          creates PREFIX000001.exr ... (empty files)
//   rename_loop prefix DIR PREFIX [SYNC FILE]  renames NAME to PREFIX+NAME
//   rename_loop case DIR                       lower-cases the name before the extension,
//                                              going through a temporary name
// SYNC (none, write, fdatasync, fsync) appends two records per rename to FILE,
// as a journal would, to price each way of making them durable.
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {
std::vector<std::string> listFolder(const std::string& dir) {
    std::vector<std::string> names;
    DIR* d = opendir(dir.c_str());
    if (!d) return names;
    while (dirent* e = readdir(d))
        if (e->d_name[0] != '.') names.emplace_back(e->d_name);
    closedir(d);
    return names;
}

bool exists(const std::string& p) {
    struct stat st;
    return lstat(p.c_str(), &st) == 0;
}

int fail(const std::string& what) {
    std::fprintf(stderr, "rename_loop: %s: %s\n", what.c_str(), std::strerror(errno));
    return 1;
}

void record(int fd, const std::string& line, const std::string& sync) {
    if (fd < 0) return;
    if (write(fd, line.data(), line.size()) < 0) return;
    if (sync == "fdatasync")
        fdatasync(fd);
    else if (sync == "fsync")
        fsync(fd);
}
} // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: rename_loop make|prefix|case DIR ...\n");
        return 2;
    }
    const std::string mode = argv[1], dir = argv[2];
    const auto start = std::chrono::steady_clock::now();
    long renamed = 0;
    if (mode == "make" && argc >= 5) {
        const long count = std::atol(argv[4]);
        char name[64];
        for (long i = 1; i <= count; ++i) {
            std::snprintf(name, sizeof name, "%s%06ld.exr", argv[3], i);
            const int fd = open((dir + '/' + name).c_str(), O_CREAT | O_WRONLY | O_EXCL, 0644);
            if (fd < 0) return fail(name);
            close(fd);
        }
        return 0;
    } else if (mode == "prefix" && argc >= 4) {
        const std::string prefix = argv[3], sync = argc >= 6 ? argv[4] : "none";
        const int jfd =
            sync == "none" ? -1 : open(argv[5], O_CREAT | O_WRONLY | O_APPEND | O_TRUNC, 0644);
        for (const std::string& name : listFolder(dir)) {
            const std::string from = dir + '/' + name, to = dir + '/' + prefix + name;
            if (exists(to)) continue;
            record(jfd, "move\t" + from + '\t' + to + '\n', sync);
            if (rename(from.c_str(), to.c_str()) != 0) return fail(from);
            record(jfd, "done\n", sync);
            ++renamed;
        }
        if (jfd >= 0) close(jfd);
    } else if (mode == "case") {
        long n = 0;
        for (const std::string& name : listFolder(dir)) {
            const size_t dot = name.rfind('.');
            std::string lower = name;
            for (size_t i = 0; i < (dot == std::string::npos ? name.size() : dot); ++i)
                lower[i] = static_cast<char>(std::tolower(static_cast<unsigned char>(lower[i])));
            if (lower == name) continue;
            const std::string from = dir + '/' + name, to = dir + '/' + lower,
                              tmp = dir + "/.rename-loop-" + std::to_string(++n);
            if (rename(from.c_str(), tmp.c_str()) != 0) return fail(from);
            if (exists(to)) return fail(to);
            if (rename(tmp.c_str(), to.c_str()) != 0) return fail(tmp);
            ++renamed;
        }
    } else {
        std::fprintf(stderr, "rename_loop: unknown mode %s\n", mode.c_str());
        return 2;
    }
    const double s =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::fprintf(stderr, "rename_loop %s: %ld renames in %.3f s\n", mode.c_str(), renamed, s);
    return 0;
}
