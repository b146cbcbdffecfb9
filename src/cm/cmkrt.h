// The fax system's own user and group: who owns the files of the fax server.
#ifndef CM_CMKRT_H_
#define CM_CMKRT_H_

// The name of the system, of its user and of its group: "krtfax", all three.
const char* cm_get_krt_name();
const char* cm_get_krt_uname();
const char* cm_get_krt_gname();

// The ids of that user and group, or -1 where the machine does not know them. A
// found id is kept for the process; a failed lookup is tried again.
int cm_get_krt_uid();
int cm_get_krt_gid();

// Whether a user may act on everybody's requests: the super-user and the fax
// system's user. Never true for -1, the id of an unknown user.
bool cm_is_krt_admin(int uid);

#endif  // CM_CMKRT_H_
