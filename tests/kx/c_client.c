/* A client in C: that it compiles is half of the test. */
#include <string.h>

#include "kx/kfx.h"

const char *client_exchange(void);

/* Appends the pair to the text at `context`. */
static int collect(void *context, const char *name, const char *value,
                   int code) {
  char *text = context;
  const size_t used = strlen(text);
  const int pair = name != NULL;
  snprintf(text + used, 200 - used, "%d:%s%s%s ", code, pair ? name : "",
           pair ? "=" : "", pair ? value : "");
  return 0;
}

static int once(void *context, char *name, char *value, int mode) {
  int *left = context;
  if (mode != kx_read_next || (*left)-- == 0) return -1;
  strcpy(name, *left == 1 ? "text" : "objend");
  strcpy(value, "hello");
  return 0;
}

/* Composes an object and gives it back as one line; null on failure. */
const char *client_exchange(void) {
  static char text[200];
  int left = 2;
  kx_object *obj = Kfx_Comp_Obj("obj-text", once, &left, NULL);
  if (obj == NULL || Kfx_Errno() != kx_err_none) return NULL;
  if (Kfx_Field_Type(obj, "text") != kx_typ_str) return NULL;
  text[0] = '\0';
  const int result = Kfx_Decomp_Obj(obj, collect, text, 0);
  return Kfx_Free_Obj(obj) == 0 && result == 0 ? text : NULL;
}
