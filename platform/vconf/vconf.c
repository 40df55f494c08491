/* Host stand-in for the platform configuration store: one file per key. */
#define _GNU_SOURCE
#include "vconf.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#define VCONF_EXPORT __attribute__((visibility("default")))

static const char DEFAULT_ROOT[] = "/var/lib/veranti/vconf";
/* '~' never appears in a key, so a temporary file can never be taken for one. */
static const char TEMP_NAME[] = ".vconf~XXXXXX";

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

/* Writes <root>/<key> into `path`; 0, or -1 with errno (EINVAL, ENAMETOOLONG). */
static int key_path(const char* key, char path[PATH_MAX]) {
    if (!vconf_key_is_valid(key)) {
        errno = EINVAL;
        return -1;
    }
    int length = snprintf(path, PATH_MAX, "%s/%s", store_root(), key);
    if (length < 0 || length >= PATH_MAX) {
        errno = ENAMETOOLONG;
        return -1;
    }
    return 0;
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

VCONF_EXPORT char* vconf_get_str(const char* in_key) {
    char path[PATH_MAX];
    if (key_path(in_key, path) != 0) return NULL;
    /* O_NONBLOCK: a FIFO placed in the store must not hang the reader. */
    int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return NULL;
    struct stat info;
    char* value = NULL;
    if (fstat(fd, &info) != 0) {
        /* errno set by fstat */
    } else if (!S_ISREG(info.st_mode)) {
        errno = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
    } else {
        value = read_all(fd, (size_t)info.st_size);
    }
    int saved = errno;
    close(fd);
    errno = saved;
    return value;
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

static size_t directory_length(const char* path) {
    return (size_t)(strrchr(path, '/') - path);
}

/* Completes `temp` (holding a directory of `dir_length` bytes) with the
 * temporary name and creates the file. Returns the fd or -1. */
static int open_temp_in(char temp[PATH_MAX], size_t dir_length) {
    temp[dir_length] = '/';
    memcpy(temp + dir_length + 1, TEMP_NAME, sizeof TEMP_NAME);
    return mkostemp(temp, O_CLOEXEC);
}

/* Creates a temporary file in the directory of `path`, creating missing
 * directories; its name goes to `temp`. Returns the fd or -1. */
static int create_temp_beside(const char* path, char temp[PATH_MAX]) {
    size_t dir_length = directory_length(path);
    if (dir_length + sizeof TEMP_NAME + 1 > PATH_MAX) {
        errno = ENAMETOOLONG;
        return -1;
    }
    memcpy(temp, path, dir_length);
    int fd = open_temp_in(temp, dir_length);
    if (fd >= 0 || errno != ENOENT) return fd;

    temp[dir_length] = '\0';
    if (make_directories(temp) != 0) return -1;
    return open_temp_in(temp, dir_length);
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

/* Makes the rename durable: flushes the directory that holds `path`. */
static void sync_directory_of(const char* path) {
    char dir[PATH_MAX];
    size_t dir_length = directory_length(path);
    memcpy(dir, path, dir_length);
    dir[dir_length] = '\0';
    int fd = open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    fsync(fd);
    close(fd);
}

VCONF_EXPORT int vconf_set_str(const char* in_key, const char* strval) {
    char path[PATH_MAX], temp[PATH_MAX];
    if (!strval) {
        errno = EINVAL;
        return -1;
    }
    if (key_path(in_key, path) != 0) return -1;
    int fd = create_temp_beside(path, temp);
    if (fd < 0) return -1;
    int failed = fchmod(fd, 0644) != 0 || write_all(fd, strval, strlen(strval)) != 0 || fsync(fd) != 0;
    int saved = errno;
    if (close(fd) != 0 && !failed) {
        failed = 1;
        saved = errno;
    }
    if (!failed && rename(temp, path) != 0) {
        failed = 1;
        saved = errno;
    }
    if (failed) {
        unlink(temp);
        errno = saved;
        return -1;
    }
    sync_directory_of(path);
    return 0;
}

VCONF_EXPORT int vconf_unset(const char* in_key) {
    char path[PATH_MAX];
    if (key_path(in_key, path) != 0) return -1;
    return unlink(path) == 0 || errno == ENOENT ? 0 : -1;
}
