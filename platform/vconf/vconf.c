/* Host stand-in for the platform configuration store: one file per key.
 *
 * Every access opens the key's directory beneath the root without following
 * any symbolic link (openat2 with RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS, or
 * one segment at a time with O_NOFOLLOW where openat2 is missing or a
 * directory must be made) and its file with O_NOFOLLOW, so no key reaches
 * outside the root: a link anywhere in a key fails with ELOOP, a file where a
 * directory is needed with ENOTDIR.
 *
 * A write goes to a temporary file in the key's directory, which its writer
 * holds locked (flock) from creation until it is renamed over the key. The
 * kernel drops the lock when the writer dies, so every write first removes
 * the temporary files of its directory that nobody holds: whatever a killed
 * writer left behind. Unsetting a key removes the directories it leaves
 * empty, up to (never including) the root. */
#define _GNU_SOURCE
#include "vconf.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/openat2.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#define VCONF_EXPORT __attribute__((visibility("default")))

static const char DEFAULT_ROOT[] = "/var/lib/veranti/vconf";
/* '~' never appears in a key, so a temporary file can never be taken for one. */
static const char TEMP_PREFIX[] = ".vconf~";
enum { TEMP_NAME_SIZE = 64, TEMP_NAME_ATTEMPTS = 100, SET_ATTEMPTS = 100 };

static int is_key_char(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' ||
           c == '.';
}

/* Length of a valid segment at `segment` (up to '/' or the end), else 0. */
static size_t segment_length(const char* segment) {
    size_t length = 0;
    while (is_key_char(segment[length])) ++length;
    if (segment[length] != '/' && segment[length] != '\0') return 0;
    if (length == 1 && segment[0] == '.') return 0;
    if (length == 2 && segment[0] == '.' && segment[1] == '.') return 0;
    return length;
}

VCONF_EXPORT int vconf_key_is_valid(const char* in_key) {
    if (!in_key || !in_key[0]) return 0;
    const char* segment = in_key;
    for (;;) {
        size_t length = segment_length(segment);
        if (length == 0) return 0;
        if (segment[length] == '\0') return 1;
        segment += length + 1;
    }
}

static const char* store_root(void) {
    const char* root = getenv("VCONF_ROOT");
    return root && root[0] ? root : DEFAULT_ROOT;
}

/* 0 for a valid key whose path fits PATH_MAX, else -1 with EINVAL or ENAMETOOLONG. */
static int check_key(const char* key) {
    if (!vconf_key_is_valid(key)) {
        errno = EINVAL;
        return -1;
    }
    if (strlen(store_root()) + 1 + strlen(key) >= PATH_MAX) {
        errno = ENAMETOOLONG;
        return -1;
    }
    return 0;
}

/* The number of directories in the key: its '/' count. */
static size_t directory_depth(const char* key) {
    size_t depth = 0;
    for (; *key; ++key) depth += *key == '/';
    return depth;
}

/* The key's last segment: the name of its file. */
static const char* leaf_name(const char* key) {
    const char* slash = strrchr(key, '/');
    return slash ? slash + 1 : key;
}

/* Copies the key's segment number `index` into `name` (PATH_MAX bytes). */
static void copy_segment(const char* key, size_t index, char* name) {
    for (; index > 0; --index) key = strchr(key, '/') + 1;
    size_t length = strcspn(key, "/");
    memcpy(name, key, length);
    name[length] = '\0';
}

static void close_keeping_errno(int fd) {
    int saved = errno;
    close(fd);
    errno = saved;
}

/* Creates `dir` and its missing parents (mode 0755). */
static int make_directories(char* dir) {
    for (char* slash = strchr(dir + 1, '/'); slash; slash = strchr(slash + 1, '/')) {
        *slash = '\0';
        int failed = mkdir(dir, 0755) != 0 && errno != EEXIST;
        *slash = '/';
        if (failed) return -1;
    }
    return mkdir(dir, 0755) != 0 && errno != EEXIST ? -1 : 0;
}

/* The root directory, created when missing and `create` is set. The root is
 * the administrator's choice and may itself be reached through links. */
static int open_root(int create) {
    const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    int fd = open(store_root(), flags);
    if (fd >= 0 || errno != ENOENT || !create) return fd;
    char root[PATH_MAX];
    snprintf(root, sizeof root, "%s", store_root());
    if (make_directories(root) != 0) return -1;
    return open(root, flags);
}

/* -1 with ELOOP when `name` in `dir` is a symbolic link, else 0. */
static int refuse_link(int dir, const char* name) {
    struct stat info;
    if (fstatat(dir, name, &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(info.st_mode)) {
        errno = ELOOP;
        return -1;
    }
    return 0;
}

/* The directory `name` inside `dir`, never through a link: O_NOFOLLOW with
 * O_DIRECTORY reports a link as ENOTDIR, made ELOOP here. */
static int open_directory_at(int dir, const char* name) {
    int fd = openat(dir, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0 && errno == ENOTDIR && refuse_link(dir, name) == 0) errno = ENOTDIR;
    return fd;
}

/* The directory `name` inside `dir` (see above), created with mode 0755 when
 * missing and `create` is set. */
static int open_directory_beneath(int dir, const char* name, int create) {
    int fd = open_directory_at(dir, name);
    if (fd >= 0 || errno != ENOENT || !create) return fd;
    if (mkdirat(dir, name, 0755) != 0 && errno != EEXIST) return -1;
    return open_directory_at(dir, name);
}

/* The directory made of the key's first `depth` segments, opened one
 * segment at a time (see open_directory_beneath). */
static int walk_to_key_directory(int root, const char* key, size_t depth, int create) {
    char name[PATH_MAX];
    int dir = root;
    for (size_t index = 0; dir >= 0 && index < depth; ++index) {
        copy_segment(key, index, name);
        int next = open_directory_beneath(dir, name, create);
        if (dir != root) close_keeping_errno(dir);
        dir = next;
    }
    return dir;
}

/* `path` opened beneath `root` in one call where the kernel has openat2
 * (Linux 5.6), never leaving `root` nor following any link (ELOOP). ENOSYS
 * where it has not, or where a sandbox forbids it (EPERM). */
static int open_beneath(int root, const char* path, int flags) {
#ifdef SYS_openat2
    struct open_how how = {.flags = (unsigned long long)flags, .resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS};
    int fd = (int)syscall(SYS_openat2, root, path, &how, sizeof how);
    if (fd < 0 && errno == EPERM) errno = ENOSYS;
    return fd;
#else
    (void)root, (void)path, (void)flags;
    errno = ENOSYS;
    return -1;
#endif
}

/* The key's first `depth` segments as a path. */
static void copy_prefix(const char* key, size_t depth, char prefix[PATH_MAX]) {
    const char* end = key;
    for (size_t index = 0; index < depth; ++index) end = strchr(end, '/') + 1;
    size_t length = (size_t)(end - key) - 1;
    memcpy(prefix, key, length);
    prefix[length] = '\0';
}

/* The directory made of the key's first `depth` segments, below the root and
 * never through a link; missing directories are made when `create` is set. */
static int open_key_directory(const char* key, size_t depth, int create) {
    int root = open_root(create);
    if (root < 0 || depth == 0) return root;
    char prefix[PATH_MAX];
    copy_prefix(key, depth, prefix);
    int dir = open_beneath(root, prefix, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir < 0 && (errno == ENOSYS || (errno == ENOENT && create)))
        dir = walk_to_key_directory(root, key, depth, create);
    close_keeping_errno(root);
    return dir;
}

/* Reads the whole of an open regular file into a NUL-terminated heap buffer. */
static char* read_all(int fd, size_t expected) {
    size_t capacity = expected + 1, length = 0;
    char* text = malloc(capacity);
    while (text) {
        if (length + 1 == capacity) {
            char* larger = realloc(text, capacity *= 2);
            if (!larger) break;
            text = larger;
        }
        ssize_t n = read(fd, text + length, capacity - 1 - length);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) break;
        if (n == 0) {
            text[length] = '\0';
            return text;
        }
        length += (size_t)n;
    }
    int saved = text ? errno : ENOMEM;
    free(text);
    errno = saved;
    return NULL;
}

/* The value of the open file `fd`: a regular file, else EISDIR or EINVAL. */
static char* read_value(int fd) {
    struct stat info;
    if (fstat(fd, &info) != 0) return NULL;
    if (!S_ISREG(info.st_mode)) {
        errno = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
        return NULL;
    }
    return read_all(fd, (size_t)info.st_size);
}

/* The key's file, opened for reading beneath the root (see open_beneath). */
static int open_key_file(const char* key) {
    int root = open_root(0);
    if (root < 0) return -1;
    /* O_NONBLOCK: a FIFO placed in the store must not hang the reader. */
    const int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    int fd = open_beneath(root, key, flags);
    if (fd < 0 && errno == ENOSYS) {
        int dir = walk_to_key_directory(root, key, directory_depth(key), 0);
        fd = dir < 0 ? -1 : openat(dir, leaf_name(key), flags);
        if (dir >= 0 && dir != root) close_keeping_errno(dir);
    }
    close_keeping_errno(root);
    return fd;
}

VCONF_EXPORT char* vconf_get_str(const char* in_key) {
    if (check_key(in_key) != 0) return NULL;
    int fd = open_key_file(in_key);
    if (fd < 0) return NULL;
    char* value = read_value(fd);
    close_keeping_errno(fd);
    return value;
}

/* 1 when `name` in `dir` is still the file open as `fd`. */
static int still_named(int dir, const char* name, int fd) {
    struct stat open_file, named;
    return fstat(fd, &open_file) == 0 && fstatat(dir, name, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           open_file.st_dev == named.st_dev && open_file.st_ino == named.st_ino;
}

/* Removes the temporary file `name` when no writer holds it. */
static void remove_if_abandoned(int dir, const char* name) {
    int fd = openat(dir, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return;
    if (flock(fd, LOCK_EX | LOCK_NB) == 0 && still_named(dir, name, fd)) unlinkat(dir, name, 0);
    close(fd);
}

/* Removes what killed writers left in `dir`. */
static void sweep_abandoned_temps(int dir) {
    int listing = openat(dir, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (listing < 0) return;
    DIR* entries = fdopendir(listing);
    if (!entries) {
        close(listing);
        return;
    }
    for (struct dirent* entry = readdir(entries); entry; entry = readdir(entries))
        if (strncmp(entry->d_name, TEMP_PREFIX, sizeof TEMP_PREFIX - 1) == 0) remove_if_abandoned(dir, entry->d_name);
    closedir(entries);
}

/* A name no other writer uses at the same time: pid, per-process count, clock. */
static void make_temp_name(char name[TEMP_NAME_SIZE]) {
    static unsigned long counter;
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    snprintf(name, TEMP_NAME_SIZE, "%s%ld.%lu.%lx", TEMP_PREFIX, (long)getpid(),
             __atomic_fetch_add(&counter, 1, __ATOMIC_RELAXED), (unsigned long)now.tv_nsec);
}

/* Creates a temporary file in `dir` and locks it; its name goes to `name`.
 * A sweeper may take the file for abandoned between its creation and the
 * lock; then it is gone once the lock is held, and another is made. */
static int create_locked_temp(int dir, char name[TEMP_NAME_SIZE]) {
    for (int attempt = 0; attempt < TEMP_NAME_ATTEMPTS; ++attempt) {
        make_temp_name(name);
        int fd = openat(dir, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0 && errno == EEXIST) continue;
        if (fd < 0) return -1;
        if (flock(fd, LOCK_EX) == 0 && still_named(dir, name, fd)) return fd;
        close(fd);
    }
    errno = EEXIST;
    return -1;
}

static int write_all(int fd, const char* data, size_t length) {
    while (length > 0) {
        ssize_t n = write(fd, data, length);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return -1;
        data += n;
        length -= (size_t)n;
    }
    return 0;
}

/* Replaces the file `leaf` in `dir` with `value`: temporary file, fsync,
 * rename, then fsync of the directory. The lock is held until the rename. */
static int replace_file(int dir, const char* leaf, const char* value) {
    if (refuse_link(dir, leaf) != 0) return -1;
    sweep_abandoned_temps(dir);
    char temp[TEMP_NAME_SIZE];
    int fd = create_locked_temp(dir, temp);
    if (fd < 0) return -1;
    int failed = fchmod(fd, 0644) != 0 || write_all(fd, value, strlen(value)) != 0 || fsync(fd) != 0 ||
                 renameat(dir, temp, dir, leaf) != 0;
    int saved = errno;
    if (failed) unlinkat(dir, temp, 0);
    close(fd);
    if (!failed) fsync(dir);
    errno = saved;
    return failed ? -1 : 0;
}

VCONF_EXPORT int vconf_set_str(const char* in_key, const char* strval) {
    if (!strval) {
        errno = EINVAL;
        return -1;
    }
    if (check_key(in_key) != 0) return -1;
    int result = -1;
    /* ENOENT: an unset removed an emptied directory meanwhile; make it again.
     * Writers that empty the same directory over and over can cause this
     * several times in a row, so the bound is generous. */
    for (int attempt = 0; attempt < SET_ATTEMPTS; ++attempt) {
        int dir = open_key_directory(in_key, directory_depth(in_key), 1);
        result = dir < 0 ? -1 : replace_file(dir, leaf_name(in_key), strval);
        if (dir >= 0) close_keeping_errno(dir);
        if (result == 0 || errno != ENOENT) break;
    }
    return result;
}

/* Removes the key's directories from the deepest up while they are empty. */
static void remove_empty_directories(const char* key, size_t depth) {
    char name[PATH_MAX];
    for (; depth > 0; --depth) {
        int parent = open_key_directory(key, depth - 1, 0);
        if (parent < 0) return;
        copy_segment(key, depth - 1, name);
        int removed = unlinkat(parent, name, AT_REMOVEDIR) == 0;
        close(parent);
        if (!removed) return;
    }
}

VCONF_EXPORT int vconf_unset(const char* in_key) {
    if (check_key(in_key) != 0) return -1;
    const size_t depth = directory_depth(in_key);
    int dir = open_key_directory(in_key, depth, 0);
    if (dir < 0) return errno == ENOENT ? 0 : -1;
    int failed =
        refuse_link(dir, leaf_name(in_key)) != 0 || (unlinkat(dir, leaf_name(in_key), 0) != 0 && errno != ENOENT);
    if (!failed) sweep_abandoned_temps(dir);
    close_keeping_errno(dir);
    if (failed) return -1;
    remove_empty_directories(in_key, depth);
    return 0;
}
