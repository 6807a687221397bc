#include "kxmd/platform/linux/render/program/KXConfinementPrivate.h"

#include "kxmd/base/KXSanitizersPrivate.h"
#include "kxmd/platform/linux/render/program/KXLandlockRulesPrivate.h"
#include "kxmd/platform/linux/system/KXFileDescriptorPrivate.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <linux/landlock.h>
#include <linux/seccomp.h>
#include <memory>
#include <sched.h>
#include <seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// Landlock.

constexpr std::uint64_t reading = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;

/// Libraries, fonts with their settings and lists, file types. What is missing is passed over.
constexpr char const* readableFolders[] { "/usr", "/lib", "/lib64", "/etc/fonts",
    "/etc/ld.so.cache", "/var/cache/fontconfig",
    // Where some systems, and packages in containers, have what others have in /usr.
    "/app", "/nix/store", "/gnu/store", "/run/host/usr", "/run/host/fonts" };

/// What programs of others need as well.
constexpr char const* readableByPrograms[] { "/bin", "/etc/alternatives", "/etc/mime.types",
    "/dev/urandom", "/dev/zero" };

constexpr std::uint64_t executing = LANDLOCK_ACCESS_FS_EXECUTE | reading;

/// Rights that can be given on a file that is no folder.
constexpr std::uint64_t rightsOfFile = LANDLOCK_ACCESS_FS_EXECUTE | LANDLOCK_ACCESS_FS_READ_FILE
    | LANDLOCK_ACCESS_FS_WRITE_FILE | KXLandlockRules::truncating;

/// What this process may do with files, from when it is enforced.
class FileRights {
public:
    FileRights()
        : _version(
            ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION))
        , _rules(_version)
        , _ruleset(_version < 1 ? -1
                                : static_cast<int>(::syscall(SYS_landlock_create_ruleset, &_rules,
                                    KXLandlockRules::lengthInVersion(_version), 0)))
    {
    }

    /// All that the kernel knows of.
    std::uint64_t all() const { return _rules.files; }

    /// Gives rights over a file, or over a folder and all that is in it.
    void give(std::uint64_t rights, char const* path) const
    {
        KXFileDescriptor const place(::open(path, O_PATH | O_CLOEXEC));
        if (!place.isOpen())
            return;
        if (!add(rights & all(), place.get()))
            (void)add(rights & all() & rightsOfFile, place.get()); // It is no folder.
    }

    template <std::size_t count>
    void give(std::uint64_t rights, char const* const (&paths)[count]) const
    {
        for (char const* const path : paths)
            give(rights, path);
    }

    /// Takes all other rights; false where the kernel cannot.
    bool enforce() const
    {
        return _ruleset.isOpen() && ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0
            && ::syscall(SYS_landlock_restrict_self, _ruleset.get(), 0) == 0;
    }

private:
    bool add(std::uint64_t rights, int place) const
    {
        landlock_path_beneath_attr rule {};
        rule.allowed_access = rights;
        rule.parent_fd = place;
        return ::syscall(
                   SYS_landlock_add_rule, _ruleset.get(), LANDLOCK_RULE_PATH_BENEATH, &rule, 0)
            == 0;
    }

    long const _version;
    KXLandlockRules const _rules;
    KXFileDescriptor const _ruleset;
};

// seccomp.

struct FilterRelease {
    void operator()(void* filter) const { seccomp_release(filter); }
};
using Filter = std::unique_ptr<void, FilterRelease>;

/// What decoders, the C library, allocators and threads call. Everything else is answered with
/// ENOSYS, for which the C library has another way.
constexpr int allowedCalls[] {
    // Files that are open, and those that Landlock lets be read.
    SCMP_SYS(read),
    SCMP_SYS(pread64),
    SCMP_SYS(readv),
    SCMP_SYS(lseek),
    SCMP_SYS(write),
    SCMP_SYS(writev),
    SCMP_SYS(pwrite64),
    SCMP_SYS(close),
    SCMP_SYS(fstat),
    SCMP_SYS(newfstatat),
    SCMP_SYS(statx),
    SCMP_SYS(stat),
    SCMP_SYS(lstat),
    SCMP_SYS(access),
    SCMP_SYS(faccessat),
    SCMP_SYS(faccessat2),
    SCMP_SYS(readlink),
    SCMP_SYS(readlinkat),
    SCMP_SYS(getdents64),
    SCMP_SYS(getcwd),
    SCMP_SYS(statfs),
    SCMP_SYS(fstatfs),
    SCMP_SYS(fadvise64),
    // The answer.
    SCMP_SYS(memfd_create),
    SCMP_SYS(ftruncate),
    SCMP_SYS(sendmsg),
    SCMP_SYS(recvmsg),
    SCMP_SYS(poll),
    SCMP_SYS(ppoll),
    // Memory.
    SCMP_SYS(brk),
    SCMP_SYS(mmap),
    SCMP_SYS(munmap),
    SCMP_SYS(mprotect),
    SCMP_SYS(mremap),
    SCMP_SYS(madvise),
    SCMP_SYS(mincore),
    // Time and order.
    SCMP_SYS(clock_gettime),
    SCMP_SYS(clock_getres),
    SCMP_SYS(gettimeofday),
    SCMP_SYS(time),
    SCMP_SYS(nanosleep),
    SCMP_SYS(clock_nanosleep),
    SCMP_SYS(futex),
    SCMP_SYS(sched_yield),
    SCMP_SYS(sched_getaffinity),
    SCMP_SYS(getcpu),
    SCMP_SYS(membarrier),
    SCMP_SYS(rseq),
    SCMP_SYS(set_robust_list),
    SCMP_SYS(restart_syscall),
    // This process, and its end.
    SCMP_SYS(getpid),
    SCMP_SYS(gettid),
    SCMP_SYS(getuid),
    SCMP_SYS(geteuid),
    SCMP_SYS(getgid),
    SCMP_SYS(getegid),
    SCMP_SYS(getrusage),
    SCMP_SYS(getrlimit),
    SCMP_SYS(sysinfo),
    SCMP_SYS(uname),
    SCMP_SYS(getrandom),
    SCMP_SYS(rt_sigaction),
    SCMP_SYS(rt_sigprocmask),
    SCMP_SYS(rt_sigreturn),
    SCMP_SYS(sigaltstack),
    SCMP_SYS(exit),
    SCMP_SYS(exit_group),
};

/// What reaches beyond a program and its files: others' services (those of the desktop as well),
/// other processes, the system's own means, and ways around this filter.
constexpr int callsDeniedToPrograms[] { SCMP_SYS(socket), SCMP_SYS(ptrace),
    SCMP_SYS(process_vm_readv), SCMP_SYS(process_vm_writev), SCMP_SYS(pidfd_getfd),
    SCMP_SYS(io_uring_setup), SCMP_SYS(bpf), SCMP_SYS(perf_event_open), SCMP_SYS(keyctl),
    SCMP_SYS(add_key), SCMP_SYS(request_key), SCMP_SYS(mount), SCMP_SYS(unshare), SCMP_SYS(setns),
    SCMP_SYS(userfaultfd) };

constexpr std::uint64_t anyWriting = O_ACCMODE | O_CREAT | O_TRUNC | O_APPEND;

/// Calls that are allowed with some arguments only.
bool addRulesOfArguments(scmp_filter_ctx filter)
{
    auto const allow = [filter](int call, scmp_arg_cmp argument) {
        return seccomp_rule_add_array(filter, SCMP_ACT_ALLOW, call, 1, &argument) == 0;
    };
    auto const equal = [](unsigned index, std::uint64_t value) {
        return scmp_arg_cmp { index, SCMP_CMP_EQ, value, 0 };
    };
    auto const without = [](unsigned index, std::uint64_t bits) {
        return scmp_arg_cmp { index, SCMP_CMP_MASKED_EQ, bits, 0 };
    };
    bool isDone = allow(SCMP_SYS(openat), without(2, anyWriting))
        && allow(SCMP_SYS(open), without(1, anyWriting))
        // Threads of this process, which some decoders have; no other process.
        && allow(SCMP_SYS(clone), { 0, SCMP_CMP_MASKED_EQ, CLONE_THREAD, CLONE_THREAD })
        // Its own limits can be read: the address of new ones is null.
        && allow(SCMP_SYS(prlimit64), equal(2, 0)) && allow(SCMP_SYS(prctl), equal(0, PR_SET_NAME));
    for (int const command : { F_GETFD, F_SETFD, F_GETFL, F_ADD_SEALS, F_GET_SEALS })
        isDone = isDone && allow(SCMP_SYS(fcntl), equal(1, static_cast<std::uint64_t>(command)));
    return isDone;
}

void limit(__rlimit_resource resource, std::uint64_t most)
{
    rlimit const limits { most, most };
    (void)::setrlimit(resource, &limits);
}

/// The address space that this process has, in bytes.
std::uint64_t addressSpace()
{
    unsigned long pages = 0;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> const file(
        std::fopen("/proc/self/statm", "re"), std::fclose);
    if (!file || std::fscanf(file.get(), "%lu", &pages) != 1)
        return 0;
    return pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

/// Asked before anything is taken away, and of the server: what it forks has as much.
std::uint64_t addressSpaceOfServer = 0;

}

bool confineToReading()
{
    addressSpaceOfServer = addressSpace();
    FileRights const rights;
    rights.give(reading, readableFolders);
    return rights.enforce();
}

bool confineProgram(KXProgramPlaces const& places)
{
    FileRights const rights;
    rights.give(executing, readableFolders);
    rights.give(executing, readableByPrograms);
    rights.give(executing, places.program);
    rights.give(reading, places.source);
    rights.give(rights.all(), places.folder);
    rights.give(reading | LANDLOCK_ACCESS_FS_WRITE_FILE, "/dev/null");
    bool const isConfined = rights.enforce();
    Filter const filter(seccomp_init(SCMP_ACT_ALLOW));
    bool isFiltered = filter != nullptr;
    for (int const call : callsDeniedToPrograms) {
        isFiltered
            = isFiltered && seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(EACCES), call, 0) == 0;
    }
    return isFiltered && seccomp_load(filter.get()) == 0 && isConfined;
}

bool canConfineToComputing()
{
    std::uint32_t action = SECCOMP_RET_ERRNO;
    return ::syscall(SYS_seccomp, SECCOMP_GET_ACTION_AVAIL, 0, &action) == 0;
}

bool confineToComputing()
{
    Filter const filter(seccomp_init(SCMP_ACT_ERRNO(ENOSYS)));
    if (!filter)
        return false;
    for (int const call : allowedCalls) {
        if (seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, call, 0) != 0)
            return false;
    }
#if KXMD_HAS_ADDRESS_SANITIZER || KXMD_HAS_THREAD_SANITIZER
    // By which they try whether memory can be read.
    if (seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, SCMP_SYS(pipe2), 0) != 0)
        return false;
#endif
    return addRulesOfArguments(filter.get()) && seccomp_load(filter.get()) == 0;
}

void limitProcess(std::uint32_t seconds, std::uint64_t memory)
{
    constexpr std::uint64_t mostOpenFiles = 64;
    limit(RLIMIT_CORE, 0);
    limit(RLIMIT_CPU, seconds);
    limit(RLIMIT_NOFILE, mostOpenFiles);
    limit(RLIMIT_FSIZE, memory); // Of files in memory as well.
    // The sanitizers of a development build want memory of their own, terabytes of it.
#if !KXMD_HAS_ADDRESS_SANITIZER && !KXMD_HAS_THREAD_SANITIZER
    limit(RLIMIT_AS, addressSpaceOfServer + memory);
#endif
}
