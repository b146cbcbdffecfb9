#include "cm/cmresult.h"

#include <cstring>

#include "cm/cmtable.h"
#include "kx/object.h"

namespace {

// The order decides which of two rows of one name is found: 3 stands before 2.
constexpr cm_row kResults[] = {
    {"      ", "", 0},
    {"NORMAL", "Normal", kCmAttemptNormal},
    {"CANCEL", "Cancelled - work", 3},
    {"CANCEL", "Cancelled - idle", 2},
    {"BUSY  ", "Busy", 4},
    {"LINDRP", "Line drop", 5},
    {"NOTFAX", "Not a fax", 6},
    {"NOANSW", "No answer", 7},
    {"VOICE ", "Voice encountered", 8},
    {"NODIAL", "No dialtone", 9},
    {"REMREJ", "Rejected", 10},
    {"FIMERR", "FIM failure", 11},
    {"BADREQ", "Bad request", 12},
    {"UNDER ", "Under-run", 15},
    {"BADMDM", "Bad modem", 16},
    {"TMEOUT", "Timed out", 17},
    {"FIMDIE", "FIM died", 18},
    {"FIMUNA", "FIM unavailable", 19},
    {"SCHERR", "Scheduling error", 20},
    {"NOFILE", "No file", 21},
    {"BADFIL", "Bad file", 22},
    {"MODIFY", "Modified - exp", 23},
    {"MODIFY", "Modified - idle", 24},
    {"ERROR4", "Error 4", 25},
    {"ERROR5", "Error 5", 26},
    {"ERROR6", "Error 6", 27},
    {"ERROR7", "Error 7", 28},
    {"ERROR8", "Error 8", 29},
    {"ERROR9", "Error 9", 30},
    {"QUEUED", "Queued", kCmAttemptQueued},
    {"NORMAL", "Normal", kCmRequestNormal},
    {"RETRY ", "Rescheduled", 1001},
    {"EXPIRE", "Expired", 1002},
    {"MAXTRY", "Max attempts reached", 1003},
    {"CANCEL", "Cancelled", kCmRequestCancelled},
    {"ERROR ", "Failed", 1005},
    {"MODIFY", "Modified", 1006},
    {"QUEUED", "Queued", kCmRequestQueued},
    {"SUBMIT", "Submitted", kCmRequestSubmitted},
};

int FindText(const char* cm_row::*column, const char* text) {
  if (text == nullptr) {
    kx_errno = kx_err_none;
    return 0;
  }
  for (const cm_row& row : kResults) {
    if (strcmp(row.*column, text) == 0) return cm_value_or_none(&row);
  }
  return cm_value_or_none(nullptr);
}

}  // namespace

kx_object* cm_result_list() { return cm_row_list(kResults); }

const char* cm_result_to_str(int code) {
  return cm_name_or(cm_find_value(kResults, code), "?");
}

const char* cm_result_to_desc(int code) {
  return cm_desc_or(cm_find_value(kResults, code), "?");
}

int cm_result_fr_str(const char* name) { return FindText(&cm_row::name, name); }

int cm_result_fr_desc(const char* desc) {
  return FindText(&cm_row::desc, desc);
}
