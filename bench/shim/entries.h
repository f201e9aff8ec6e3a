// The libc entry points the preload library wraps, less those the shim writes out by hand
// (open, open64, openat, openat64, ioctl: variadic; close, fopen, fopen64: they also follow the
// configuration file). One line per entry:
//   X(return type, name, (parameters), (arguments), path argument that identifies the call)
// The path argument lets the shim tell a wrapper that forwards the caller's own call to
// another wrapper (__open_2 -> open, same pointer) from the emulator's own file work.
// Keep in step with the exports of libkvosim.so: an entry missing here is not timed.
#pragma once

#define QB_ENTRIES(X)                                                                                     \
    X(int, __open_2, (const char* p, int f), (p, f), p)                                                   \
    X(int, __open64_2, (const char* p, int f), (p, f), p)                                                 \
    X(int, __openat_2, (int d, const char* p, int f), (d, p, f), p)                                       \
    X(int, __openat64_2, (int d, const char* p, int f), (d, p, f), p)                                     \
    X(int, creat, (const char* p, mode_t m), (p, m), p)                                                   \
    X(int, creat64, (const char* p, mode_t m), (p, m), p)                                                 \
    X(FILE*, freopen, (const char* p, const char* m, FILE* s), (p, m, s), p)                              \
    X(FILE*, freopen64, (const char* p, const char* m, FILE* s), (p, m, s), p)                            \
    X(int, fclose, (FILE * s), (s), nullptr)                                                              \
    X(int, dup, (int fd), (fd), nullptr)                                                                  \
    X(int, dup2, (int a, int b), (a, b), nullptr)                                                         \
    X(int, dup3, (int a, int b, int f), (a, b, f), nullptr)                                               \
    X(DIR*, opendir, (const char* p), (p), p)                                                             \
    X(DIR*, fdopendir, (int fd), (fd), nullptr)                                                           \
    X(struct dirent*, readdir, (DIR * d), (d), nullptr)                                                   \
    X(struct dirent64*, readdir64, (DIR * d), (d), nullptr)                                               \
    X(void, rewinddir, (DIR * d), (d), nullptr)                                                           \
    X(int, closedir, (DIR * d), (d), nullptr)                                                             \
    X(int, mkdir, (const char* p, mode_t m), (p, m), p)                                                   \
    X(int, mkdirat, (int d, const char* p, mode_t m), (d, p, m), p)                                       \
    X(int, rmdir, (const char* p), (p), p)                                                                \
    X(int, chdir, (const char* p), (p), p)                                                                \
    X(int, stat, (const char* p, struct stat* b), (p, b), p)                                              \
    X(int, lstat, (const char* p, struct stat* b), (p, b), p)                                             \
    X(int, stat64, (const char* p, struct stat64* b), (p, b), p)                                          \
    X(int, lstat64, (const char* p, struct stat64* b), (p, b), p)                                         \
    X(int, fstatat, (int d, const char* p, struct stat* b, int f), (d, p, b, f), p)                       \
    X(int, fstatat64, (int d, const char* p, struct stat64* b, int f), (d, p, b, f), p)                   \
    X(int, __xstat, (int v, const char* p, struct stat* b), (v, p, b), p)                                 \
    X(int, __lxstat, (int v, const char* p, struct stat* b), (v, p, b), p)                                \
    X(int, __xstat64, (int v, const char* p, struct stat64* b), (v, p, b), p)                             \
    X(int, __lxstat64, (int v, const char* p, struct stat64* b), (v, p, b), p)                            \
    X(int, __fxstatat, (int v, int d, const char* p, struct stat* b, int f), (v, d, p, b, f), p)          \
    X(int, __fxstatat64, (int v, int d, const char* p, struct stat64* b, int f), (v, d, p, b, f), p)      \
    X(int, statx, (int d, const char* p, int f, unsigned int m, struct statx* b), (d, p, f, m, b), p)     \
    X(int, access, (const char* p, int m), (p, m), p)                                                     \
    X(int, faccessat, (int d, const char* p, int m, int f), (d, p, m, f), p)                              \
    X(int, euidaccess, (const char* p, int m), (p, m), p)                                                 \
    X(int, eaccess, (const char* p, int m), (p, m), p)                                                    \
    X(long, pathconf, (const char* p, int n), (p, n), p)                                                  \
    X(int, truncate, (const char* p, off_t l), (p, l), p)                                                 \
    X(int, chmod, (const char* p, mode_t m), (p, m), p)                                                   \
    X(int, chown, (const char* p, uid_t u, gid_t g), (p, u, g), p)                                        \
    X(int, lchown, (const char* p, uid_t u, gid_t g), (p, u, g), p)                                       \
    X(int, utimensat, (int d, const char* p, const struct timespec* t, int f), (d, p, t, f), p)           \
    X(int, mknod, (const char* p, mode_t m, dev_t v), (p, m, v), p)                                       \
    X(int, statfs, (const char* p, struct statfs* b), (p, b), p)                                          \
    X(int, statvfs, (const char* p, struct statvfs* b), (p, b), p)                                        \
    X(int, scandir,                                                                                       \
      (const char* p, struct dirent*** l, int (*f)(const struct dirent*),                                 \
       int (*c)(const struct dirent**, const struct dirent**)),                                           \
      (p, l, f, c), p)                                                                                    \
    X(int, scandir64,                                                                                     \
      (const char* p, struct dirent64*** l, int (*f)(const struct dirent64*),                             \
       int (*c)(const struct dirent64**, const struct dirent64**)),                                       \
      (p, l, f, c), p)                                                                                    \
    X(int, symlink, (const char* t, const char* p), (t, p), p)                                            \
    X(int, link, (const char* a, const char* b), (a, b), a)                                               \
    X(ssize_t, readlink, (const char* p, char* b, size_t n), (p, b, n), p)                                \
    X(ssize_t, readlinkat, (int d, const char* p, char* b, size_t n), (d, p, b, n), p)                    \
    X(ssize_t, __readlink_chk, (const char* p, char* b, size_t n, size_t m), (p, b, n, m), p)             \
    X(ssize_t, __readlinkat_chk, (int d, const char* p, char* b, size_t n, size_t m), (d, p, b, n, m), p) \
    X(char*, realpath, (const char* p, char* r), (p, r), p)                                               \
    X(char*, __realpath_chk, (const char* p, char* r, size_t n), (p, r, n), p)                            \
    X(char*, canonicalize_file_name, (const char* p), (p), p)                                             \
    X(int, unlink, (const char* p), (p), p)                                                               \
    X(int, unlinkat, (int d, const char* p, int f), (d, p, f), p)                                         \
    X(int, remove, (const char* p), (p), p)                                                               \
    X(int, rename, (const char* a, const char* b), (a, b), a)                                             \
    X(int, renameat, (int d, const char* a, int e, const char* b), (d, a, e, b), a)                       \
    X(int, mount, (const char* s, const char* t, const char* y, unsigned long f, const void* x),          \
      (s, t, y, f, x), t)                                                                                 \
    X(int, umount, (const char* t), (t), t)                                                               \
    X(int, umount2, (const char* t, int f), (t, f), t)                                                    \
    X(int, system, (const char* c), (c), c)
