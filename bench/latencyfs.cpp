// latencyfs: a pass-through file system that mirrors a backing folder and
// waits a fixed time on every request before serving it, to stand in for a
// file server on the other end of a network.
//
//   latencyfs BACKING MOUNTPOINT [-o OPTION[,OPTION...]] [other mount options]
//
//   delay_us=N      microseconds each request waits before it is served (1000)
//   norenameflags   refuse rename flags (RENAME_NOREPLACE, ...) with EINVAL
//   nolinks         refuse hard links with EPERM
//   stats=FILE      write the number of requests served, by kind, at unmount
//   max_threads=N   requests served at once (64 here; libfuse's own default is 10)
//
// Requests are served by a pool of threads, so waits on different folders
// overlap as they do on a server, while the kernel still lets only one rename
// at a time into a folder (it holds the folder's lock across the request).
// Unmount with `fusermount3 -u MOUNTPOINT`.
#define FUSE_USE_VERSION 31

#include <fuse.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <thread>
#include <unistd.h>

namespace {

struct Config {
    unsigned delayUs = 1000;
    int noRenameFlags = 0;
    int noLinks = 0;
    char* stats = nullptr;
    char* backing = nullptr;
};

Config config;
int backingFd = -1;

enum class Op {
    Getattr,
    Access,
    Readlink,
    Opendir,
    Readdir,
    Releasedir,
    Mkdir,
    Rmdir,
    Unlink,
    Rename,
    Link,
    Chmod,
    Truncate,
    Utimens,
    Open,
    Create,
    Read,
    Write,
    Fsync,
    Release,
    Statfs,
    Count
};
constexpr std::array<const char*, std::size_t(Op::Count)> opNames = {
    "getattr", "access", "readlink", "opendir", "readdir", "releasedir", "mkdir",
    "rmdir",   "unlink", "rename",   "link",    "chmod",   "truncate",   "utimens",
    "open",    "create", "read",     "write",   "fsync",   "release",    "statfs"};
std::array<std::atomic<std::uint64_t>, std::size_t(Op::Count)> served{};

// Every request pays the round trip before it is served.
void serve(Op op) {
    served[std::size_t(op)].fetch_add(1, std::memory_order_relaxed);
    if (config.delayUs) std::this_thread::sleep_for(std::chrono::microseconds(config.delayUs));
}

// libfuse hands absolute paths inside the mount; the backing folder is open
// as backingFd, so "/" is "." and "/a/b" is "a/b" relative to it.
const char* rel(const char* path) {
    return path[1] ? path + 1 : ".";
}

int result(int r) {
    return r == 0 ? 0 : -errno;
}

int fdOf(const fuse_file_info* fi) {
    return static_cast<int>(fi->fh);
}

struct DirHandle {
    DIR* dp = nullptr;
    dirent* entry = nullptr; // read but not yet taken by the kernel's buffer
    off_t offset = 0;
};
DirHandle* dirOf(const fuse_file_info* fi) {
    return reinterpret_cast<DirHandle*>(static_cast<std::uintptr_t>(fi->fh));
}

void* lfsInit(fuse_conn_info*, fuse_config* cfg) {
    cfg->use_ino = 1; // the backing inode numbers, so that a hard link shows as one file
    return nullptr;
}

void lfsDestroy(void*) {
    if (!config.stats) return;
    FILE* out = std::fopen(config.stats, "w");
    if (!out) return;
    std::uint64_t total = 0;
    for (std::size_t i = 0; i < served.size(); ++i) {
        const std::uint64_t n = served[i].load();
        total += n;
        if (n) std::fprintf(out, "%s %llu\n", opNames[i], static_cast<unsigned long long>(n));
    }
    std::fprintf(out, "total %llu\n", static_cast<unsigned long long>(total));
    std::fclose(out);
}

int lfsGetattr(const char* path, struct stat* st, fuse_file_info* fi) {
    serve(Op::Getattr);
    return result(fi ? ::fstat(fdOf(fi), st)
                     : ::fstatat(backingFd, rel(path), st, AT_SYMLINK_NOFOLLOW));
}

int lfsAccess(const char* path, int mask) {
    serve(Op::Access);
    return result(::faccessat(backingFd, rel(path), mask, 0));
}

int lfsReadlink(const char* path, char* buf, size_t size) {
    serve(Op::Readlink);
    if (size == 0) return -EINVAL;
    const ssize_t n = ::readlinkat(backingFd, rel(path), buf, size - 1);
    if (n < 0) return -errno;
    buf[n] = '\0';
    return 0;
}

int lfsOpendir(const char* path, fuse_file_info* fi) {
    serve(Op::Opendir);
    const int fd = ::openat(backingFd, rel(path), O_RDONLY | O_DIRECTORY);
    if (fd < 0) return -errno;
    DIR* dp = ::fdopendir(fd);
    if (!dp) {
        const int e = errno;
        ::close(fd);
        return -e;
    }
    fi->fh = reinterpret_cast<std::uintptr_t>(new DirHandle{dp});
    return 0;
}

// Offsets are the backing folder's own, so that every buffer the kernel asks
// for is a request of its own (and pays its wait), as on a server.
int lfsReaddir(const char*, void* buf, fuse_fill_dir_t fill, off_t offset, fuse_file_info* fi,
               fuse_readdir_flags flags) {
    serve(Op::Readdir);
    DirHandle* d = dirOf(fi);
    if (offset != d->offset) {
        ::seekdir(d->dp, offset);
        d->entry = nullptr;
        d->offset = offset;
    }
    for (;;) {
        if (!d->entry) {
            errno = 0;
            d->entry = ::readdir(d->dp);
            if (!d->entry) return -errno;
        }
        struct stat st {};
        auto fillFlags = fuse_fill_dir_flags(0);
        if ((flags & FUSE_READDIR_PLUS) &&
            ::fstatat(::dirfd(d->dp), d->entry->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0) {
            fillFlags = FUSE_FILL_DIR_PLUS;
        } else {
            st.st_ino = d->entry->d_ino;
            st.st_mode = DTTOIF(d->entry->d_type);
        }
        const off_t next = ::telldir(d->dp);
        if (fill(buf, d->entry->d_name, &st, next, fillFlags)) return 0; // the buffer is full
        d->entry = nullptr;
        d->offset = next;
    }
}

int lfsReleasedir(const char*, fuse_file_info* fi) {
    serve(Op::Releasedir);
    DirHandle* d = dirOf(fi);
    ::closedir(d->dp);
    delete d;
    return 0;
}

int lfsMkdir(const char* path, mode_t mode) {
    serve(Op::Mkdir);
    return result(::mkdirat(backingFd, rel(path), mode));
}

int lfsRmdir(const char* path) {
    serve(Op::Rmdir);
    return result(::unlinkat(backingFd, rel(path), AT_REMOVEDIR));
}

int lfsUnlink(const char* path) {
    serve(Op::Unlink);
    return result(::unlinkat(backingFd, rel(path), 0));
}

int lfsRename(const char* from, const char* to, unsigned int flags) {
    serve(Op::Rename);
    if (flags && config.noRenameFlags) return -EINVAL;
    return result(::renameat2(backingFd, rel(from), backingFd, rel(to), flags));
}

int lfsLink(const char* from, const char* to) {
    serve(Op::Link);
    if (config.noLinks) return -EPERM;
    return result(::linkat(backingFd, rel(from), backingFd, rel(to), 0));
}

int lfsChmod(const char* path, mode_t mode, fuse_file_info* fi) {
    serve(Op::Chmod);
    return result(fi ? ::fchmod(fdOf(fi), mode) : ::fchmodat(backingFd, rel(path), mode, 0));
}

int lfsTruncate(const char* path, off_t size, fuse_file_info* fi) {
    serve(Op::Truncate);
    if (fi) return result(::ftruncate(fdOf(fi), size));
    const int fd = ::openat(backingFd, rel(path), O_WRONLY);
    if (fd < 0) return -errno;
    const int r = result(::ftruncate(fd, size));
    ::close(fd);
    return r;
}

int lfsUtimens(const char* path, const struct timespec tv[2], fuse_file_info* fi) {
    serve(Op::Utimens);
    return result(fi ? ::futimens(fdOf(fi), tv)
                     : ::utimensat(backingFd, rel(path), tv, AT_SYMLINK_NOFOLLOW));
}

int lfsOpen(const char* path, fuse_file_info* fi) {
    serve(Op::Open);
    const int fd = ::openat(backingFd, rel(path), fi->flags);
    if (fd < 0) return -errno;
    fi->fh = static_cast<std::uint64_t>(fd);
    return 0;
}

int lfsCreate(const char* path, mode_t mode, fuse_file_info* fi) {
    serve(Op::Create);
    const int fd = ::openat(backingFd, rel(path), fi->flags | O_CREAT, mode);
    if (fd < 0) return -errno;
    fi->fh = static_cast<std::uint64_t>(fd);
    return 0;
}

int lfsRead(const char*, char* buf, size_t size, off_t offset, fuse_file_info* fi) {
    serve(Op::Read);
    const ssize_t n = ::pread(fdOf(fi), buf, size, offset);
    return n < 0 ? -errno : static_cast<int>(n);
}

int lfsWrite(const char*, const char* buf, size_t size, off_t offset, fuse_file_info* fi) {
    serve(Op::Write);
    const ssize_t n = ::pwrite(fdOf(fi), buf, size, offset);
    return n < 0 ? -errno : static_cast<int>(n);
}

int lfsFsync(const char*, int dataOnly, fuse_file_info* fi) {
    serve(Op::Fsync);
    return result(dataOnly ? ::fdatasync(fdOf(fi)) : ::fsync(fdOf(fi)));
}

int lfsRelease(const char*, fuse_file_info* fi) {
    serve(Op::Release);
    ::close(fdOf(fi));
    return 0;
}

int lfsStatfs(const char*, struct statvfs* st) {
    serve(Op::Statfs);
    return result(::fstatvfs(backingFd, st));
}

enum { KeyHelp };

const fuse_opt optionSpecs[] = {{"delay_us=%u", offsetof(Config, delayUs), 0},
                                {"norenameflags", offsetof(Config, noRenameFlags), 1},
                                {"nolinks", offsetof(Config, noLinks), 1},
                                {"stats=%s", offsetof(Config, stats), 0},
                                FUSE_OPT_KEY("-h", KeyHelp),
                                FUSE_OPT_KEY("--help", KeyHelp),
                                FUSE_OPT_END};

const char* const usage =
    "usage: latencyfs BACKING MOUNTPOINT [-o OPTION[,OPTION...]]\n"
    "  -o delay_us=N       microseconds each request waits before it is served (1000)\n"
    "  -o norenameflags    refuse rename flags with EINVAL\n"
    "  -o nolinks          refuse hard links with EPERM\n"
    "  -o stats=FILE       write the requests served, by kind, at unmount\n"
    "  -o max_threads=N    requests served at once (64)\n\n";

// The first argument that is not an option is the backing folder; the next
// one is the mount point, left for libfuse.
int takeArgument(void* data, const char* arg, int key, fuse_args*) {
    auto* cfg = static_cast<Config*>(data);
    if (key == KeyHelp) {
        std::fputs(usage, stdout);
        return 1; // libfuse adds its own options
    }
    if (key == FUSE_OPT_KEY_NONOPT && !cfg->backing) {
        cfg->backing = ::strdup(arg);
        return 0;
    }
    return 1;
}

// The stats file is written after libfuse has made "/" the working folder.
char* absolute(char* path) {
    if (!path || path[0] == '/') return path;
    char cwd[PATH_MAX];
    if (!::getcwd(cwd, sizeof cwd)) return path;
    const std::string full = std::string(cwd) + '/' + path;
    std::free(path);
    return ::strdup(full.c_str());
}

} // namespace

int main(int argc, char* argv[]) {
    fuse_args args = FUSE_ARGS_INIT(argc, argv);
    if (fuse_opt_parse(&args, &config, optionSpecs, takeArgument) != 0) return 2;
    const bool help = [&] {
        for (int i = 1; i < args.argc; ++i)
            if (!std::strcmp(args.argv[i], "-h") || !std::strcmp(args.argv[i], "--help"))
                return true;
        return false;
    }();
    if (!help) {
        if (!config.backing) {
            std::fputs(usage, stderr);
            return 2;
        }
        backingFd = ::open(config.backing, O_RDONLY | O_DIRECTORY);
        if (backingFd < 0) {
            std::fprintf(stderr, "latencyfs: %s: %s\n", config.backing, std::strerror(errno));
            return 1;
        }
    }
    config.stats = absolute(config.stats);
    // Put first, so that a max_threads given on the command line wins.
    fuse_opt_insert_arg(&args, 1, "-omax_threads=64,max_idle_threads=64");
    // A one-millisecond wait should not stretch by the default 50 us of timer
    // slack; the serving threads inherit the setting.
    ::prctl(PR_SET_TIMERSLACK, 1UL);

    fuse_operations ops{};
    ops.init = lfsInit;
    ops.destroy = lfsDestroy;
    ops.getattr = lfsGetattr;
    ops.access = lfsAccess;
    ops.readlink = lfsReadlink;
    ops.opendir = lfsOpendir;
    ops.readdir = lfsReaddir;
    ops.releasedir = lfsReleasedir;
    ops.mkdir = lfsMkdir;
    ops.rmdir = lfsRmdir;
    ops.unlink = lfsUnlink;
    ops.rename = lfsRename;
    ops.link = lfsLink;
    ops.chmod = lfsChmod;
    ops.truncate = lfsTruncate;
    ops.utimens = lfsUtimens;
    ops.open = lfsOpen;
    ops.create = lfsCreate;
    ops.read = lfsRead;
    ops.write = lfsWrite;
    ops.fsync = lfsFsync;
    ops.release = lfsRelease;
    ops.statfs = lfsStatfs;
    const int status = fuse_main(args.argc, args.argv, &ops, nullptr);
    fuse_opt_free_args(&args);
    return status;
}
