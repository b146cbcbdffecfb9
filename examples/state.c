/* Asks the fax server for its state and prints it: a client program in C.
 *
 *     cc state.c $(pkg-config --cflags --libs krtclient) -o state
 *     KFAXDIR=/usr/krtfax/spool ./state */
#include <client/krtclient.h>
#include <stdio.h>

/* Prints the name and the state of every device. */
static void print_devices(kx_object *node) {
  for (; node != NULL; node = Kfx_Bnext(node)) {
    kx_object *device = Kfx_Bdata(node);
    const char *name = Kfx_Get(device, "destname");
    const char *state = Kfx_Get(device, "devstate");
    printf("device %s: %s\n", name != NULL ? name : "?",
           state != NULL ? state : "unknown");
  }
}

int main(void) {
  krt_client *client;
  kx_object *answer;
  int status = krt_open(NULL, &client);
  if (status != krt_ok) {
    fprintf(stderr, "state: %s\n", krt_open_error());
    return status;
  }
  status = krt_call(client, krt_command("cmd-state", NULL), &answer);
  if (status != krt_ok) {
    fprintf(stderr, "state: %s\n", krt_error(client));
  } else {
    kx_object *state = Kfx_Get(answer, "objptr");
    const char *up = Kfx_Get(state, "schedup");
    printf("scheduler up: %s\n", up != NULL ? up : "unknown");
    print_devices(Kfx_Get(state, "devlist"));
  }
  if (answer != NULL) Kfx_Free_Obj(answer);
  krt_close(client);
  return status;
}
