/* Host stand-in for the platform configuration store.
 *
 * One file per key below a root directory: $VCONF_ROOT when set, else
 * /var/lib/veranti/vconf. The key "db/a/b" is the file <root>/db/a/b and
 * holds the value's bytes only. A valid key is relative, made of segments of
 * letters, digits, '_', '-' and '.' separated by single '/', with no segment
 * "." or ".."; any other key fails with EINVAL. Writes replace the file
 * atomically (temporary file in the same directory, fsync, rename), creating
 * missing directories with mode 0755; value files get mode 0644. */
#ifndef VCONF_H
#define VCONF_H

#ifdef __cplusplus
extern "C" {
#endif

/* A malloc'ed copy of the key's value, or NULL with errno set
 * (ENOENT missing, EINVAL bad key, EISDIR when the key's path is a
 * directory, others from the file system). */
char* vconf_get_str(const char* in_key);

/* 0 on success, -1 with errno on failure. A value may not be NULL. */
int vconf_set_str(const char* in_key, const char* strval);

/* 0 on success (also when the key was absent), -1 with errno on failure. */
int vconf_unset(const char* in_key);

/* 1 when the key is well formed, else 0. */
int vconf_key_is_valid(const char* in_key);

/* Change notification.
 *
 * vconf_watch_add calls `callback` with the key after its value was replaced
 * or removed, by this process or any other (vconf_set_str, vconf_unset, a
 * rename into place). Calls run on the thread-default GLib main context of
 * the thread that added the watch, so that thread (or whichever runs that
 * context) must iterate it. Changes that arrive together may be reported by
 * one call, and a call may come when the value ended up as it was: read the
 * value in the callback and compare. The key's directories need not exist:
 * the watch follows them as they are made and removed. Returns a watch id
 * (never 0), or 0 with errno: EINVAL for a bad key or a null callback, others
 * from the kernel's file notification (EMFILE, ENOSPC when its limits are
 * reached). Each watch holds one file descriptor until it is removed. */
typedef void (*vconf_watch_cb)(const char* in_key, void* user_data);
unsigned int vconf_watch_add(const char* in_key, vconf_watch_cb callback, void* user_data);

/* Ends a watch. Called on the thread that iterates the watch's context (the
 * callback itself may call it), no call follows; from another thread, a call
 * already under way may still finish. 0, or -1 with EINVAL for an id that is
 * not a current watch. */
int vconf_watch_remove(unsigned int watch_id);

#ifdef __cplusplus
}
#endif

#endif /* VCONF_H */
