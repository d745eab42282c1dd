// To be preloaded into a program: lets one of its calls of the C library fail, once. Three
// variables say which; children of the program inherit neither them nor this library.
//
//   FAILING_CALL    read, write, ...: a name in the table below
//   FAILING_AT      the number of the call, from 1; calls of all threads are counted together
//   FAILING_REPORT  a file that is made when the call has failed
//
// Calls that the C library makes of itself cannot be seen from here.

// Both names of what has two are defined below.
#undef _FILE_OFFSET_BITS
#undef _TIME_BITS

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}

namespace {

// What a name stands for: functions that do the same are counted together.
struct Call {
  const char* name;
  int error;  // the errno of the failure
};
constexpr Call READ{"read", EIO};
constexpr Call WRITE{"write", ENOSPC};
constexpr Call WRITEV{"writev", ENOSPC};
constexpr Call OPEN{"open", EMFILE};
constexpr Call FOPEN{"fopen", EMFILE};
constexpr Call FCLOSE{"fclose", EIO};
constexpr Call RENAME{"rename", EIO};
constexpr Call SELECT{"select", ENOMEM};
constexpr Call POLL{"poll", ENOMEM};
constexpr Call FCNTL{"fcntl", ENOLCK};
constexpr Call FORK{"fork", EAGAIN};
constexpr Call PIPE{"pipe", EMFILE};
constexpr Call PTHREAD_CREATE{"pthread_create", EAGAIN};
constexpr Call MALLOC{"malloc", ENOMEM};
constexpr Call LSEEK{"lseek", EIO};
constexpr Call STAT{"stat", EIO};

// Filled before the program begins; until then nothing fails.
const char* wanted = nullptr;
const char* report = nullptr;
long wantedAt = 0;
pid_t program = 0;
std::atomic<long> count{0};

void readVariables() {
  if (program != 0) {
    return;
  }
  program = getpid();
  const char* const at = getenv("FAILING_AT");
  wantedAt = at == nullptr ? 0 : std::strtol(at, nullptr, 10);
  report = getenv("FAILING_REPORT");
  wanted = getenv("FAILING_CALL");
}

__attribute__((constructor)) void begin() {
  readVariables();
  unsetenv("LD_PRELOAD");
}

// Whether this call is the one; then errno is set.
bool fails(const Call& call) {
  if (program == 0 && environ != nullptr) {
    readVariables();
  }
  if (wanted == nullptr || std::strcmp(wanted, call.name) != 0 || getpid() != program ||
      ++count != wantedAt) {
    return false;
  }
  const long made = syscall(SYS_openat, AT_FDCWD, report, O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
  syscall(SYS_close, made);
  errno = call.error;
  return true;
}

template <typename Function>
Function* original(Function*& known, const char* name) {
  if (known == nullptr) {
    known = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
  }
  return known;
}

}  // namespace

// The function of this name, with its parameters and arguments in parentheses.
#define FAILING(call, failure, result, name, parameters, arguments) \
  extern "C" result name parameters {                               \
    static result(*known) parameters = nullptr;                     \
    if (fails(call)) {                                              \
      return failure;                                               \
    }                                                               \
    return original(known, #name) arguments;                        \
  }

FAILING(READ, -1, ssize_t, read, (int fd, void* buffer, std::size_t size), (fd, buffer, size))
FAILING(WRITE, -1, ssize_t, write, (int fd, const void* data, std::size_t size), (fd, data, size))
FAILING(WRITEV, -1, ssize_t, writev, (int fd, const iovec* pieces, int pieceCount),
        (fd, pieces, pieceCount))
FAILING(FOPEN, nullptr, FILE*, fopen, (const char* path, const char* mode), (path, mode))
FAILING(FOPEN, nullptr, FILE*, fopen64, (const char* path, const char* mode), (path, mode))
FAILING(RENAME, -1, int, rename, (const char* from, const char* to), (from, to))
FAILING(SELECT, -1, int, select,
        (int fdCount, fd_set* reading, fd_set* writing, fd_set* special, timeval* limit),
        (fdCount, reading, writing, special, limit))
FAILING(POLL, -1, int, poll, (pollfd * files, nfds_t fileCount, int limit),
        (files, fileCount, limit))
FAILING(FORK, -1, pid_t, fork, (), ())
FAILING(PIPE, -1, int, pipe, (int* ends), (ends))
FAILING(PIPE, -1, int, pipe2, (int* ends, int flags), (ends, flags))
FAILING(PTHREAD_CREATE, EAGAIN, int, pthread_create,
        (pthread_t * thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument),
        (thread, attributes, run, argument))
FAILING(LSEEK, -1, off_t, lseek, (int fd, off_t offset, int whence), (fd, offset, whence))
FAILING(LSEEK, -1, off64_t, lseek64, (int fd, off64_t offset, int whence), (fd, offset, whence))
FAILING(STAT, -1, int, stat, (const char* path, struct stat* status), (path, status))
FAILING(STAT, -1, int, stat64, (const char* path, struct stat64* status), (path, status))
FAILING(STAT, -1, int, fstat, (int fd, struct stat* status), (fd, status))
FAILING(STAT, -1, int, fstat64, (int fd, struct stat64* status), (fd, status))

extern "C" int open(const char* path, int flags, ...) {
  static int (*known)(const char*, int, ...) = nullptr;
  va_list rest;
  va_start(rest, flags);
  const int mode = (flags & O_CREAT) != 0 ? va_arg(rest, int) : 0;
  va_end(rest);
  if (fails(OPEN)) {
    return -1;
  }
  return original(known, "open")(path, flags, mode);
}

extern "C" int open64(const char* path, int flags, ...) {
  static int (*known)(const char*, int, ...) = nullptr;
  va_list rest;
  va_start(rest, flags);
  const int mode = (flags & O_CREAT) != 0 ? va_arg(rest, int) : 0;
  va_end(rest);
  if (fails(OPEN)) {
    return -1;
  }
  return original(known, "open64")(path, flags, mode);
}

extern "C" int fcntl(int fd, int command, ...) {
  static int (*known)(int, int, ...) = nullptr;
  va_list rest;
  va_start(rest, command);
  const long argument = va_arg(rest, long);
  va_end(rest);
  if (fails(FCNTL)) {
    return -1;
  }
  return original(known, "fcntl")(fd, command, argument);
}

extern "C" int fcntl64(int fd, int command, ...) {
  static int (*known)(int, int, ...) = nullptr;
  va_list rest;
  va_start(rest, command);
  const long argument = va_arg(rest, long);
  va_end(rest);
  if (fails(FCNTL)) {
    return -1;
  }
  return original(known, "fcntl64")(fd, command, argument);
}

// The file is closed all the same, as it is when the disk turns out to be full.
extern "C" int fclose(FILE* file) {
  static int (*known)(FILE*) = nullptr;
  const bool isFailure = fails(FCLOSE);
  const int result = original(known, "fclose")(file);
  errno = isFailure ? FCLOSE.error : errno;
  return isFailure ? EOF : result;
}

extern "C" void* malloc(std::size_t size) { return fails(MALLOC) ? nullptr : __libc_malloc(size); }

extern "C" void* calloc(std::size_t number, std::size_t size) {
  return fails(MALLOC) ? nullptr : __libc_calloc(number, size);
}

extern "C" void* realloc(void* memory, std::size_t size) {
  return fails(MALLOC) ? nullptr : __libc_realloc(memory, size);
}

extern "C" void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return fails(MALLOC) ? nullptr : __libc_memalign(alignment, size);
}

extern "C" int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
  *memory = fails(MALLOC) ? nullptr : __libc_memalign(alignment, size);
  return *memory == nullptr ? ENOMEM : 0;
}
