/* The object library: typed records that are read and written by field name.
 *
 * This is the one header that a client program includes, from C or from C++.
 * An object is one of 44 types, known by a name such as "obj-cmdrsp"; its
 * fields are got and set as text. Its text form, one "name=value" line a field,
 * is the protocol between the daemon and its clients.
 *
 * - Ownership: an object owns the objects and lists stored in it. Kfx_Free_Obj
 *   frees all of it. A text that a function returns belongs to the library or
 *   to the object: copy it before the next call of the same function.
 * - Failure: a null reference or -1, with the reason in Kfx_Errno(). What acts
 *   on objects sets the error number, to 0 on success; the conversions and most
 *   of the list functions leave it alone.
 * - Numbers are 32-bit and signed; -1 means "not set" and cannot be stored.
 *   Numbers in a text that do not fit are brought to the nearest that does.
 * - Not for several threads at once: error number and text buffers are those
 *   of the process. Nothing here is safe in a signal handler.
 * - Limits: freeing, copying and writing go one call deeper for each object
 *   that is nested in another. Composing allows 64 levels; objects that a
 *   program nests itself are not counted. Composing takes the memory that its
 *   input asks for, up to some 50 times the input's size: who reads what a
 *   stranger wrote bounds the input. */
#ifndef KX_KFX_H_
#define KX_KFX_H_

#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/* An object, or a list: a list is its first node, itself an object of type
 * "obj-list", and the null reference is the empty list. */
typedef struct kx_object kx_object;

/* The values of enum fields, field types and command types among them:
 * kx_cmd_noop is 51 and stands for "cmd-noop". */
enum kx_enum {
#define KX_ENUM(group, name, value) kx_##group##_##name = value,
#include "kx/kxenum.def"
#undef KX_ENUM
};

/* Error numbers, also what a response carries as its "result". */
enum kx_error {
#define KX_ERROR(code, name, text) kx_err_##name = code,
#include "kx/kxerror.def"
#undef KX_ERROR
};

/* Bytes of the name and of the value buffer that a reader callback fills, each
 * with its terminator: what one line of a file can hold at the most. */
enum { KX_PAIR_SIZE = 512 };

/* What a reader is asked for. */
enum kx_reader_mode {
  kx_read_next = 1, /* fill the two buffers with the next pair */
  kx_read_push = 2  /* take the pair in the buffers back, for the next read */
};

/* What a writer is told. */
enum kx_writer_code {
  kx_write_obj_begin = 1,  /* "objbeg", type name */
  kx_write_obj_end = 2,    /* "objend", type name */
  kx_write_field = 3,      /* field name, text */
  kx_write_file_begin = 4, /* "filebeg", base name of the file */
  kx_write_file_end = 5,   /* "fileend", base name of the file */
  kx_write_file_data = 6,  /* "filedata", one encoded line */
  kx_write_start = 7,      /* null, null: before anything else */
  kx_write_stop = 8        /* null, null: after everything else */
};

/* Delivers the pairs of a stream. 0, or -1 when none is left. Each buffer has
 * KX_PAIR_SIZE bytes. */
typedef int (*kx_reader)(void *context, char *name, char *value, int mode);
/* Takes the pairs of a stream. 0 to go on, any other value to end it. */
typedef int (*kx_writer)(void *context, const char *name, const char *value,
                         int code);

/* ---- Objects ---- */

/* Makes an empty object. The caller frees it. Null: 21 for an unknown type, 1
 * without memory; also, with error number 0, for "obj-list" (the empty list is
 * the null reference). */
kx_object *Kfx_Build_Obj(const char *type);
/* Frees the object, or the whole list, and everything it owns. 0, or -1 with
 * 21 for null. */
int Kfx_Free_Obj(kx_object *obj);
/* A deep copy, which the caller frees. Null: 21 for null, 1 without memory. A
 * nested object that cannot be copied is unset in the copy. */
kx_object *Kfx_Copy_Obj(kx_object *obj);

/* The value of a field: a text (const char *) for fields of text, number, enum,
 * bool and time; the bytes of a data field; the object or list itself
 * (kx_object *, still owned by `obj`) for the others. Null when it is not set
 * (error number 0), 20 for an unknown field, 21 for a null object. The text of
 * a number is overwritten by the next get of a field of the same kind. */
void *Kfx_Get(kx_object *obj, const char *field);
/* Stores a field; `value` is of the kind that Kfx_Get returns and is copied,
 * but for an object or list, which the object owns from then on (the one it
 * replaces is not freed). Null or an empty text resets the field. 0, also with
 * error number 20 for an unknown field. -1 and the field unchanged: 24 for a
 * text that is too long, 19 for one that cannot be converted, 21. */
int Kfx_Set(kx_object *obj, const char *field, const void *value);

/* 1 when the object is of the type, else 0 with 21. */
int Kfx_Is_Obj_Type(kx_object *obj, const char *type);
/* The name of its type, or null with 21. */
const char *Kfx_Object_Type(kx_object *obj);
/* The kind of a field (kx_typ_str to kx_typ_obj), or -1 with 20 or 21. */
int Kfx_Field_Type(kx_object *obj, const char *field);
/* The declared size of a text or data field in bytes, the terminator of a text
 * included; 0 for all others. -1 with 20 or 21. */
int Kfx_Field_Length(kx_object *obj, const char *field);

/* ---- Text form ---- */

/* Makes an object of the named type from the reader's pairs; unknown fields are
 * skipped. `directory` is where embedded files are unpacked; null leaves them
 * alone. The caller frees the object. Null: 6 when the input ended early or a
 * nested object failed, also more than 64 levels deep; 19 for a refused value;
 * 21 for another type's object. */
kx_object *Kfx_Comp_Obj(const char *type, kx_reader reader, void *context,
                        const char *directory);
/* Gives the object's pairs to the writer; with `embed` set, the contents of the
 * files that it names as well. A newline inside a value is given as a blank. 0,
 * or what the failing step returned, with 6. */
int Kfx_Decomp_Obj(kx_object *obj, kx_writer writer, void *context, int embed);

/* Writes the object to a file, replacing it in one step ("-": to standard
 * output). 0, or -1 with 3 (and errno) or 6; an earlier file is then as it
 * was. */
int Kfx_Save_Obj(kx_object *obj, const char *path);
/* Reads an object from a file ("-": standard input). Without a type, null or
 * "", the file's own. Embedded files are unpacked in the current directory. The
 * caller frees the object. Null: 3 when the file cannot be read or is empty;
 * otherwise as Kfx_Comp_Obj. */
kx_object *Kfx_Load_Obj(const char *type, const char *path);

/* ---- Errors ---- */

int Kfx_Errno(void);   /* the last error number */
int Kfx_Serverr(void); /* the error number that the far side reported */
/* The far side's message for error 2, at most 255 characters. */
const char *Kfx_Servmsg(void);
/* The text for an error number: for 2 the far side's message, for 3 the
 * system's text for errno (a static buffer), for a number without a text one
 * that tells the number (a static buffer). */
const char *Kfx_Errmsg(int code);

/* ---- Values to text and back ----
 * Each function that returns a text has one static buffer of its own or returns
 * a constant. From a text, null is -1. */

const char *Kfx_Bool_To_Str(int value); /* "true", "false", else "-1" */
int Kfx_Str_To_Bool(const char *text);  /* true yes on, false no off; else -1 */
const char *Kfx_Word_To_Str(int value);
int Kfx_Str_To_Word(const char *text); /* the leading number; 0 without one */
const char *Kfx_Long_To_Str(int value);
int Kfx_Str_To_Long(const char *text);
/* UTC as YYYYMMDDHHMMSS; "now" for 0; null for -1 or below. */
const char *Kfx_Time_To_Str(int seconds);
/* Seconds since 1970 UTC of a date and time in digits, 0 for "now", or -1. */
int Kfx_Str_To_Time(const char *text);
const char *Kfx_Enum_To_Str(int value); /* "-1" for a value without a name */
int Kfx_Str_To_Enum(const char *name);  /* -1 for an unknown name */

/* ---- Lists ----
 * Doubly linked nodes, each holding one element that the list functions do not
 * own; positions count from 0. Only Kfx_Free_Obj and Kfx_Copy_Obj, given a
 * list, take its elements for objects. */

/* A new node without neighbours, or null. */
kx_object *Kfx_Bnew(void *element);
/* Appends a node or a whole list. The list, or the chain when it is empty. */
kx_object *Kfx_Bappend(kx_object *list, kx_object *chain);
/* Puts the chain right after the node. The node, or the chain for null. */
kx_object *Kfx_Binsert(kx_object *node, kx_object *chain);
kx_object *Kfx_Blast(kx_object *list); /* the last node, or null */
int Kfx_Bcount(kx_object *list);       /* the number of nodes */
/* The node at a position, and its element; null outside the list. */
kx_object *Kfx_Bnth(kx_object *list, int n);
void *Kfx_Bnthid(kx_object *list, int n);
/* The position of a node, or -1. */
int Kfx_Bindex(kx_object *list, kx_object *node);
/* The first node that holds this very element, or null. */
kx_object *Kfx_Bfind(kx_object *list, void *element);
/* Unlinks the node and clears its links, also when it is not in the list. The
 * list's head afterwards. */
kx_object *Kfx_Bremove(kx_object *list, kx_object *node);
/* Kfx_Bremove, and frees the node. */
kx_object *Kfx_Bdelete(kx_object *list, kx_object *node);
int Kfx_Bfree(kx_object *node);         /* frees one node; 0 */
kx_object *Kfx_Bscrap(kx_object *list); /* frees all nodes; null */
/* New nodes with the same elements, or null. */
kx_object *Kfx_Bdup(kx_object *list);
/* Calls the function for every node; it must not unlink the node. */
void Kfx_Bapplyf(kx_object *list, void (*function)(kx_object *node));
/* Sorts the elements, the nodes keep their places. The comparator gets pointers
 * to two elements, as qsort gives them; equal elements may end in any order.
 * The list; unsorted when there is no memory. Uses an array that is kept for
 * later sorts. */
kx_object *Kfx_Bsort(kx_object *list,
                     int (*compare)(const void *a, const void *b));
void Kfx_Bsfree(void); /* frees that array */
/* A node's neighbour and element; null for null. */
kx_object *Kfx_Bnext(kx_object *node);
void *Kfx_Bdata(kx_object *node);

#ifdef __cplusplus
}
#endif

#endif /* KX_KFX_H_ */
