#include "isam/iscode.h"

namespace {

struct Message {
  int code;
  const char* text;
};

constexpr Message kMessages[] = {
    {kIsamOk, "NO_ERROR: No error"},
    {kIsamDuplicate, "KDUP_ERR: Key value already exists"},
    {kIsamNoFile, "FNOP_ERR: Could not open file: not there or locked"},
    {kIsamIndexExists, "KOPN_ERR: Tried to create existing index file"},
    {kIsamDataExists, "DOPN_ERR: Tried to create existing data file"},
    {kIsamNoCurrent, "ICUR_ERR: No current record for isam datno"},
    {kIsamNotFound, "INOT_ERR: Could not find isam keyno request"},
    {kIsamNotStarted, "STRT_ERR: Store was not started"},
    {kIsamBadArgument, "ARGS_ERR: Argument or description not possible"},
    {kIsamBadNumber, "FNUM_ERR: No open file has this number"},
    {kIsamTooManyFiles, "FMAX_ERR: Too many open files"},
    {kIsamCannotLock, "LOCK_ERR: Could not get lock in time"},
    {kIsamReadOnly, "RDLY_ERR: File was opened for reading only"},
    {kIsamNoPermission, "PERM_ERR: No permission for file"},
    {kIsamIo, "IOER_ERR: Read or write of file failed"},
    {kIsamNoSpace, "SPAC_ERR: No space left for file"},
    {kIsamDamaged, "DAMG_ERR: File is damaged, rebuild needed"},
    {kIsamBadVersion, "VERS_ERR: Not a file of this store's version"},
    {kIsamTableFull, "FULL_ERR: No numbers left for more records"},
    {kIsamDeleted, "GONE_ERR: File was deleted while it was open"},
    {kIsamNoMemory, "MEMY_ERR: Not enough memory"},
    {kIsamTooLong, "TIME_ERR: Took too long"},
};

}  // namespace

const char* isam_errmsg(int code) {
  for (const Message& message : kMessages)
    if (message.code == code) return message.text;
  return nullptr;
}
