/* Change notification for the configuration store stand-in.
 *
 * Each watch owns one inotify instance that watches the key's directory, or,
 * while that directory does not exist, the nearest existing ancestor; the
 * watch moves down as directories appear and up as they go away. The inotify
 * descriptor is polled by a GSource on the main context of the thread that
 * added the watch, so callbacks run there. */
#define _GNU_SOURCE
#include <errno.h>
#include <glib-unix.h>
#include <glib.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include "vconf.h"

#define VCONF_EXPORT __attribute__((visibility("default")))

static const char DEFAULT_WATCH_ROOT[] = "/var/lib/veranti/vconf";

/* Events on a directory that can change the key or the path down to it. */
static const uint32_t WATCH_MASK =
    IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_CLOSE_WRITE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
/* Events on the key's own name that complete a replacement or a removal. */
static const uint32_t KEY_CHANGE_MASK = IN_MOVED_TO | IN_CLOSE_WRITE | IN_DELETE | IN_MOVED_FROM;
/* Events on a child of an ancestor that may bring the key's directory into being. */
static const uint32_t PATH_GROWTH_MASK = IN_CREATE | IN_MOVED_TO;
/* Events that mean the watched directory itself is gone or moved. */
static const uint32_t WATCH_LOST_MASK = IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT;

/* What the file at the key's path was when last looked at. */
typedef struct {
    int present;
    dev_t device;
    ino_t inode;
    off_t size;
    struct timespec changed;
} KeyState;

typedef struct {
    unsigned int id;
    char* key;
    char* path;         /* absolute path of the key's file */
    size_t key_dir_end; /* length of the key's directory within path */
    size_t watched_end; /* length of the directory currently watched */
    int fd;             /* the inotify instance */
    int wd;             /* its current watch, -1 when none */
    KeyState state;
    vconf_watch_cb callback;
    void* user_data;
    GSource* source;
} Watch;

static GMutex registry_lock;
static GHashTable* registry; /* id -> Watch*, the watches not yet removed */
static unsigned int last_id;

static KeyState current_state(const char* path) {
    KeyState state = {0};
    struct stat info;
    if (stat(path, &info) == 0 && S_ISREG(info.st_mode)) {
        state.present = 1;
        state.device = info.st_dev;
        state.inode = info.st_ino;
        state.size = info.st_size;
        state.changed = info.st_ctim;
    }
    return state;
}

static int same_state(const KeyState* a, const KeyState* b) {
    if (a->present != b->present) return 0;
    return !a->present || (a->device == b->device && a->inode == b->inode && a->size == b->size &&
                           a->changed.tv_sec == b->changed.tv_sec && a->changed.tv_nsec == b->changed.tv_nsec);
}

/* The key's file as an absolute path, or NULL. */
static char* absolute_key_path(const char* key) {
    const char* root = getenv("VCONF_ROOT");
    if (!root || !root[0]) root = DEFAULT_WATCH_ROOT;
    if (g_path_is_absolute(root)) return g_build_filename(root, key, NULL);
    char* cwd = g_get_current_dir();
    char* path = g_build_filename(cwd, root, key, NULL);
    g_free(cwd);
    return path;
}

/* Watches the directory path[0, end), or its nearest existing ancestor. */
static int watch_nearest_directory(Watch* watch, size_t end) {
    char* dir = g_strndup(watch->path, end);
    int wd = -1;
    for (;;) {
        wd = inotify_add_watch(watch->fd, dir[0] ? dir : "/", WATCH_MASK);
        if (wd >= 0 || (errno != ENOENT && errno != ENOTDIR)) break;
        char* slash = strrchr(dir, '/');
        if (!slash) break;
        *slash = '\0';
    }
    if (wd >= 0) watch->watched_end = strlen(dir);
    g_free(dir);
    return wd;
}

/* The end of the path segment that follows the watched directory. */
static size_t next_segment_end(const Watch* watch) {
    const char* start = watch->path + watch->watched_end + 1;
    const char* slash = strchr(start, '/');
    return slash ? (size_t)(slash - watch->path) : strlen(watch->path);
}

static int is_directory(const char* path, size_t end) {
    char* dir = g_strndup(path, end);
    struct stat info;
    const int result = stat(dir, &info) == 0 && S_ISDIR(info.st_mode);
    g_free(dir);
    return result;
}

/* Moves the inotify watch to the deepest existing directory on the key's
 * path. A directory made while the watch moves is caught by looking again
 * after each new watch is in place. 0, or -1 with errno. */
static int arm(Watch* watch) {
    if (watch->wd >= 0) inotify_rm_watch(watch->fd, watch->wd);
    watch->wd = -1;
    size_t end = watch->key_dir_end;
    for (;;) {
        const int wd = watch_nearest_directory(watch, end);
        if (wd < 0) return -1;
        if (watch->wd >= 0 && watch->wd != wd) inotify_rm_watch(watch->fd, watch->wd);
        watch->wd = wd;
        if (watch->watched_end >= watch->key_dir_end) return 0;
        const size_t next = next_segment_end(watch);
        if (!is_directory(watch->path, next)) return 0;
        end = watch->key_dir_end;
    }
}

static const char* key_file_name(const Watch* watch) {
    return watch->path + watch->key_dir_end + 1;
}

/* Whether one event of the current watch touches the key; sets *lost when the
 * watch has to move. */
static int event_touches_key(const Watch* watch, const struct inotify_event* event, int* lost) {
    if (event->mask & IN_Q_OVERFLOW) {
        *lost = 1;
        return 1;
    }
    if (event->wd != watch->wd) return 0;
    if (event->mask & WATCH_LOST_MASK) {
        *lost = 1;
        return 0;
    }
    if (event->len == 0) return 0;
    if (watch->watched_end >= watch->key_dir_end) {
        return (event->mask & KEY_CHANGE_MASK) && strcmp(event->name, key_file_name(watch)) == 0;
    }
    const char* next = watch->path + watch->watched_end + 1;
    const size_t length = next_segment_end(watch) - watch->watched_end - 1;
    if ((event->mask & PATH_GROWTH_MASK) && strlen(event->name) == length && strncmp(event->name, next, length) == 0) {
        *lost = 1;
    }
    return 0;
}

/* Reads every pending event; 1 when the key may have changed. */
static int drain_events(Watch* watch) {
    char buffer[4096] __attribute__((aligned(__alignof__(struct inotify_event))));
    int touched = 0;
    int lost = 0;
    ssize_t length;
    while ((length = read(watch->fd, buffer, sizeof buffer)) > 0) {
        for (char* at = buffer; at < buffer + length;) {
            const struct inotify_event* event = (const struct inotify_event*)at;
            touched |= event_touches_key(watch, event, &lost);
            at += sizeof *event + event->len;
        }
    }
    if (lost) arm(watch);
    const KeyState now = current_state(watch->path);
    touched |= !same_state(&now, &watch->state);
    watch->state = now;
    return touched;
}

static gboolean on_events(gint fd, GIOCondition condition, gpointer data) {
    (void)fd;
    (void)condition;
    Watch* watch = data;
    if (drain_events(watch)) watch->callback(watch->key, watch->user_data);
    return G_SOURCE_CONTINUE;
}

static void free_watch(gpointer data) {
    Watch* watch = data;
    close(watch->fd);
    g_free(watch->key);
    g_free(watch->path);
    g_free(watch);
}

static Watch* new_watch(const char* key, vconf_watch_cb callback, void* user_data) {
    Watch* watch = g_new0(Watch, 1);
    watch->key = g_strdup(key);
    watch->path = absolute_key_path(key);
    watch->key_dir_end = (size_t)(strrchr(watch->path, '/') - watch->path);
    watch->wd = -1;
    watch->callback = callback;
    watch->user_data = user_data;
    watch->fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (watch->fd < 0 || arm(watch) != 0) {
        const int error = errno;
        if (watch->fd >= 0) close(watch->fd);
        watch->fd = -1;
        g_free(watch->key);
        g_free(watch->path);
        g_free(watch);
        errno = error;
        return NULL;
    }
    watch->state = current_state(watch->path);
    return watch;
}

VCONF_EXPORT unsigned int vconf_watch_add(const char* in_key, vconf_watch_cb callback, void* user_data) {
    if (!in_key || !callback || !vconf_key_is_valid(in_key)) {
        errno = EINVAL;
        return 0;
    }
    Watch* watch = new_watch(in_key, callback, user_data);
    if (!watch) return 0;
    GMainContext* context = g_main_context_ref_thread_default();
    watch->source = g_unix_fd_source_new(watch->fd, G_IO_IN);
    g_source_set_callback(watch->source, G_SOURCE_FUNC(on_events), watch, free_watch);
    g_source_set_name(watch->source, "vconf watch");
    g_mutex_lock(&registry_lock);
    if (!registry) registry = g_hash_table_new(g_direct_hash, g_direct_equal);
    do {
        watch->id = ++last_id;
    } while (watch->id == 0 || g_hash_table_contains(registry, GUINT_TO_POINTER(watch->id)));
    g_hash_table_insert(registry, GUINT_TO_POINTER(watch->id), watch->source);
    const unsigned int id = watch->id;
    g_mutex_unlock(&registry_lock);
    g_source_attach(watch->source, context);
    g_main_context_unref(context);
    return id;
}

VCONF_EXPORT int vconf_watch_remove(unsigned int watch_id) {
    g_mutex_lock(&registry_lock);
    GSource* source = registry ? g_hash_table_lookup(registry, GUINT_TO_POINTER(watch_id)) : NULL;
    if (source) g_hash_table_remove(registry, GUINT_TO_POINTER(watch_id));
    g_mutex_unlock(&registry_lock);
    if (!source) {
        errno = EINVAL;
        return -1;
    }
    g_source_destroy(source);
    g_source_unref(source);
    return 0;
}
