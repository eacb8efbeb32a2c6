/* The platform's mandatory-access labels.
 *
 * A label is an extended attribute of the file (xattr(7)); that of type ACCESS is
 * "security.SMACK64". The `l` forms act on a symbolic link itself.
 */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

enum smack_label_type {
  SMACK_LABEL_ACCESS = 0,
  SMACK_LABEL_EXEC = 1,
  SMACK_LABEL_MMAP = 2,
  SMACK_LABEL_TRANSMUTE = 3,
};

/* 0 on success, -1 with errno on failure. */
int smack_setlabel(const char* path, const char* label, enum smack_label_type type);
int smack_lsetlabel(const char* path, const char* label, enum smack_label_type type);

/* 0 on success with a malloc'ed text in `*label`, which the caller frees, or null there when the
 * file has no label; -1 with errno on failure. */
int smack_getlabel(const char* path, char** label, enum smack_label_type type);
int smack_lgetlabel(const char* path, char** label, enum smack_label_type type);

#ifdef __cplusplus
}
#endif
