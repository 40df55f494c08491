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

#ifdef __cplusplus
}
#endif

#endif /* VCONF_H */
