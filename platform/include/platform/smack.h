/* The platform's mandatory-access labels.
 *
 * A label is an extended attribute of a file (xattr(7)). The attribute of a label of type
 * SMACK_LABEL_ACCESS is "security.SMACK64". The functions with an "l" before "setlabel" or
 * "getlabel" operate on a symbolic link itself.
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

/* Set a label. Return 0 on success, or -1 with errno set. */
int smack_setlabel(const char* path, const char* label, enum smack_label_type type);
int smack_lsetlabel(const char* path, const char* label, enum smack_label_type type);

/* Store the label in `*label`, or null if the file has no label. The caller must free(3) it. Return
 * 0 on success, or -1 with errno set. */
int smack_getlabel(const char* path, char** label, enum smack_label_type type);
int smack_lgetlabel(const char* path, char** label, enum smack_label_type type);

#ifdef __cplusplus
}
#endif
