#include "ctl/verbs.h"

#include "ctl/book/actions.h"
#include "ctl/check/check.h"
#include "ctl/help.h"
#include "ctl/verbs/actions.h"

namespace client {
namespace {

constexpr OptionRow kGlobal[] = {
    {"root", 0, "DIR", "the fax server's root directory", nullptr, false},
    {"spool", 0, "DIR", "the spool directory, when it is another one", nullptr,
     false},
    {"user", 'u', "USER", "act for this user (root and group krtfax)", nullptr,
     false},
    {"timeout", 0, "S", "seconds to wait for an answer, 0 for ever (30)",
     nullptr, false},
    {"no-wait", 0, nullptr, "send, print the exchange's name, do not wait",
     nullptr, false},
    {"json", 'j', nullptr, "results and errors as JSON", nullptr, false},
    {"text", 0, nullptr, "results in the protocol's own form", nullptr, false},
    {"quiet", 'q', nullptr, "only what was asked for, no headings", nullptr,
     false},
    {"verbose", 'v', nullptr, "tell on standard error what is done", nullptr,
     false},
    {"dry-run", 'n', nullptr, "print the command file instead of sending it",
     nullptr, false},
    {"color", 0, "WHEN", "auto, always or never", "auto always never", false},
    {"yes", 'y', nullptr, "do not ask", nullptr, false},
    {"help", 'h', nullptr, "show the help of the verb", nullptr, false},
    {"version", 0, nullptr, "show the version", nullptr, false},
};

constexpr OptionRow kState[] = {
    {"watch", 0, "S", "show it again every S seconds", nullptr, false},
};

constexpr char kBooks[] = "user system";

constexpr OptionRow kSubmit[] = {
    {"to", 't', "NUMBER", "fax number, or @ALIAS of the phone book", nullptr,
     true},
    {"name", 0, "NAME", "name of the recipient", nullptr, false},
    {"company", 0, "NAME", "company of the recipient", nullptr, false},
    {"cover", 0, "PAGE", "put this cover page in front", nullptr, false},
    {"subject", 0, "TEXT", "subject on the cover page", nullptr, false},
    {"note", 0, "TEXT", "note on the cover page; @FILE takes it from a file",
     nullptr, false},
    {"at", 0, "TIME", "send at: HH:MM, YYYY-MM-DD HH:MM, +2h, now", nullptr,
     false},
    {"retry", 0, "NAME", "retry strategy", nullptr, false},
    {"priority", 0, "NAME",
     "none, low, medium, high or urgent, or x, l, m, h, u",
     "x l m h u none low medium high urgent", false},
    {"resolution", 0, "NAME", "std or fine", "std fine", false},
    {"queue", 0, "NAME", "queue to send through", nullptr, false},
    {"notify", 0, "WHEN", "none, ok, fail, okfail or each",
     "none ok fail okfail each", false},
    {"mail", 0, "ADDRESS", "where to mail the outcome", nullptr, false},
    {"tag", 0, "NAME=VALUE", "fill in a tag of the cover page", nullptr, true},
    {"no-copy", 0, nullptr, "pass the files' own paths, copy nothing", nullptr,
     false},
    {"wait", 0, nullptr, "wait until the fax is sent or has failed", nullptr,
     false},
    {"book", 0, "BOOK", "phone book for @ALIAS: user or system", kBooks, false},
};

constexpr OptionRow kQueue[] = {
    {"all", 0, nullptr, "everybody's requests", nullptr, false},
    {"shape", 0, nullptr, "how long requests have been waiting, by queue",
     nullptr, false},
};

constexpr OptionRow kStatus[] = {
    {"attempts", 0, nullptr, "one line for each attempt", nullptr, false},
};

constexpr OptionRow kSince[] = {
    {"since", 0, "TIME", "only what changed after this time", nullptr, false},
};

constexpr OptionRow kFaxGet[] = {
    {"output", 'o', "FILE", "where to put it; - is standard output", nullptr,
     false},
};

constexpr OptionRow kFaxRoute[] = {
    {"move", 0, nullptr, "forward: the fax leaves this user's queue", nullptr,
     false},
};

constexpr OptionRow kMsgList[] = {
    {"since", 0, "TIME", "only what changed after this time", nullptr, false},
    {"server", 0, nullptr, "the server's messages", nullptr, false},
    {"events", 0, nullptr, "the statuses of requests", nullptr, false},
    {"routes", 0, nullptr, "the users to whom a fax can be routed", nullptr,
     false},
};

constexpr OptionRow kCoverList[] = {
    {"all", 0, nullptr, "also those not offered", nullptr, false},
};

constexpr OptionRow kBook[] = {
    {"book", 0, "BOOK", "user (default) or system", kBooks, false},
};

constexpr char kSorts[] = "alias lname fname company unsorted";

constexpr OptionRow kPbList[] = {
    {"book", 0, "BOOK", "user (default) or system", kBooks, false},
    {"sort", 0, "ORDER", "alias, lname, fname, company or unsorted", kSorts,
     false},
    {"group", 0, "ALIAS", "only members of this group", nullptr, false},
    {"from", 0, "TEXT", "from here on in the order", nullptr, false},
    {"to", 0, "TEXT", "up to here, this not included", nullptr, false},
    {"max", 0, "N", "at most so many", nullptr, false},
};

constexpr OptionRow kPbCount[] = {
    {"book", 0, "BOOK", "user (default) or system", kBooks, false},
    {"sort", 0, "ORDER", "the order that --from and --to mean", kSorts, false},
    {"group", 0, "ALIAS", "only members of this group", nullptr, false},
    {"from", 0, "TEXT", "from here on in the order", nullptr, false},
    {"to", 0, "TEXT", "up to here, this not included", nullptr, false},
    {"groups", 0, nullptr, "count groups", nullptr, false},
};

constexpr char kFormats[] = "csv vcard";

constexpr OptionRow kPbImport[] = {
    {"book", 0, "BOOK", "user (default) or system", kBooks, false},
    {"format", 0, "FORMAT", "csv or vcard; by the file when not given",
     kFormats, false},
    {"map", 0, "COLUMN=FIELD", "take a column for this field", nullptr, true},
    {"ignore-unknown", 0, nullptr, "skip columns that are no field", nullptr,
     false},
    {"alias-from", 0, "FIELD", "make missing aliases from this field", nullptr,
     false},
    {"on-duplicate", 0, "WHAT", "reject (default), skip or update",
     "reject skip update", false},
    {"rejects", 0, "FILE", "write the rejected rows here, with the reason",
     nullptr, false},
    {"groups", 0, nullptr, "the file holds groups and members", nullptr, false},
};

constexpr OptionRow kPbExport[] = {
    {"book", 0, "BOOK", "user (default) or system", kBooks, false},
    {"format", 0, "FORMAT", "csv or vcard; by the file when not given",
     kFormats, false},
    {"vcard-version", 0, "V", "3.0 or 4.0 (default)", "3.0 4.0", false},
    {"group", 0, "ALIAS", "only members of this group", nullptr, false},
    {"groups", 0, nullptr, "groups and their members instead of persons",
     nullptr, false},
};

constexpr OptionRow kRun[] = {
    {"object", 0, nullptr, "the program prints an object", nullptr, false},
};

constexpr OptionRow kCheck[] = {
    {"offline", 0, nullptr, "only what the daemon needs to start", nullptr,
     false},
    {"fix", 0, nullptr, "repair what can be repaired", nullptr, false},
};

constexpr std::span<const OptionRow> kNone;
constexpr bool kOne = false;
constexpr bool kMany = true;

// One line a verb would be too long, so: name, arguments, help; their number
// and kind; options; shape of the result; what runs.
constexpr VerbRow kVerbs[] = {
    {"ping", "", "ask the daemon whether it is there", 0, 0, ArgKind::kNone,
     kNone, kOne, false, RunPing},
    {"state", "", "show scheduler, devices, queues and waiting requests", 0, 0,
     ArgKind::kNone, kState, kOne, false, RunState},
    {"list", "KIND", "list what the server offers", 1, 1, ArgKind::kListKind,
     kNone, kMany, false, RunList},
    {"submit", "FILE...", "send files as a fax; - is standard input", 1,
     kAnyNumber, ArgKind::kFile, kSubmit, kMany, false, RunSubmit},
    {"queue", "", "show your waiting requests", 0, 0, ArgKind::kNone, kQueue,
     kMany, false, RunQueue},
    {"status", "SEQNO...", "show what became of requests", 1, kAnyNumber,
     ArgKind::kFree, kStatus, kMany, false, RunStatus},
    {"wait", "SEQNO...", "wait until requests are done", 1, kAnyNumber,
     ArgKind::kFree, kNone, kMany, false, RunWait},
    {"cancel", "SEQNO...", "cancel requests", 1, kAnyNumber, ArgKind::kFree,
     kNone, kMany, false, RunCancel},
    {"retry", "SEQNO...", "have requests tried now", 1, kAnyNumber,
     ArgKind::kFree, kNone, kMany, false, RunRetry},
    {"fax list", "", "list received faxes", 0, 0, ArgKind::kNone, kSince, kMany,
     false, RunFaxList},
    {"fax get", "NAME", "fetch a received fax", 1, 1, ArgKind::kFree, kFaxGet,
     kOne, false, RunFaxGet},
    {"fax put", "FILE [NAME]", "store a file among the received faxes", 1, 2,
     ArgKind::kFile, kNone, kOne, false, RunFaxPut},
    {"fax rm", "NAME...", "delete received faxes", 1, kAnyNumber,
     ArgKind::kFree, kNone, kMany, false, RunFaxRm},
    {"fax print", "NAME...", "print received faxes on the server", 1,
     kAnyNumber, ArgKind::kFree, kNone, kMany, false, RunFaxPrint},
    {"fax route", "NAME USER...", "pass a received fax on to other users", 2,
     kAnyNumber, ArgKind::kFree, kFaxRoute, kMany, false, RunFaxRoute},
    {"msg list", "", "list messages", 0, 0, ArgKind::kNone, kMsgList, kMany,
     false, RunMsgList},
    {"msg show", "NAME...", "show messages", 1, kAnyNumber, ArgKind::kFree,
     kNone, kMany, false, RunMsgShow},
    {"msg rm", "NAME...", "delete messages", 1, kAnyNumber, ArgKind::kFree,
     kNone, kMany, false, RunMsgRm},
    {"cover list", "", "list cover pages", 0, 0, ArgKind::kNone, kCoverList,
     kMany, false, RunCoverList},
    {"cover tags", "NAME", "list the tags of a cover page", 1, 1,
     ArgKind::kFree, kNone, kMany, false, RunCoverTags},
    {"cover match", "TAG...", "list cover pages that have all the tags", 1,
     kAnyNumber, ArgKind::kFree, kNone, kMany, false, RunCoverMatch},
    {"config show", "", "show your settings", 0, 0, ArgKind::kNone, kNone, kOne,
     false, RunConfigShow},
    {"config set", "NAME=VALUE...", "change settings; an empty value resets", 1,
     kAnyNumber, ArgKind::kFree, kNone, kOne, false, RunConfigSet},
    {"config edit", "", "change settings in your editor", 0, 0, ArgKind::kNone,
     kNone, kOne, false, RunConfigEdit},
    {"monitor show", "", "show whose calls you see", 0, 0, ArgKind::kNone,
     kNone, kOne, false, RunMonitorShow},
    {"monitor only", "NAME...", "see the calls of these users only", 1,
     kAnyNumber, ArgKind::kFree, kNone, kOne, false, RunMonitorOnly},
    {"monitor except", "[NAME...]", "see all calls but these users'", 0,
     kAnyNumber, ArgKind::kFree, kNone, kOne, false, RunMonitorExcept},
    {"clean", "", "forget the statuses of requests that are gone", 0, 0,
     ArgKind::kNone, kNone, kOne, false, RunClean},
    {"pb list", "", "list persons", 0, 0, ArgKind::kNone, kPbList, kMany, false,
     RunPbList},
    {"pb find", "TEXT", "list persons with the text in any field", 1, 1,
     ArgKind::kFree, kBook, kMany, false, RunPbFind},
    {"pb show", "ALIAS...", "show persons", 1, kAnyNumber, ArgKind::kFree,
     kBook, kMany, false, RunPbShow},
    {"pb add", "FIELD=VALUE...", "add a person", 1, kAnyNumber, ArgKind::kFree,
     kBook, kOne, false, RunPbAdd},
    {"pb edit", "ALIAS [FIELD=VALUE...]", "change a person", 1, kAnyNumber,
     ArgKind::kFree, kBook, kOne, false, RunPbEdit},
    {"pb rm", "ALIAS...", "delete persons and their memberships", 1, kAnyNumber,
     ArgKind::kFree, kBook, kMany, false, RunPbRm},
    {"pb count", "", "count persons", 0, 0, ArgKind::kNone, kPbCount, kOne,
     false, RunPbCount},
    {"pb group list", "[ALIAS]", "list groups, or those of a person", 0, 1,
     ArgKind::kFree, kBook, kMany, false, RunPbGroupList},
    {"pb group show", "GROUP", "list the members of a group", 1, 1,
     ArgKind::kFree, kBook, kMany, false, RunPbGroupShow},
    {"pb group add", "GROUP [DESCRIPTION]", "add a group", 1, 2, ArgKind::kFree,
     kBook, kOne, false, RunPbGroupAdd},
    {"pb group edit", "GROUP DESCRIPTION", "describe a group anew", 2, 2,
     ArgKind::kFree, kBook, kOne, false, RunPbGroupEdit},
    {"pb group rm", "GROUP...", "delete groups and their memberships", 1,
     kAnyNumber, ArgKind::kFree, kBook, kMany, false, RunPbGroupRm},
    {"pb group join", "GROUP ALIAS...", "make persons members of a group", 2,
     kAnyNumber, ArgKind::kFree, kBook, kMany, false, RunPbGroupJoin},
    {"pb group leave", "GROUP ALIAS...", "take persons out of a group", 2,
     kAnyNumber, ArgKind::kFree, kBook, kMany, false, RunPbGroupLeave},
    {"pb init", "", "make the phone book", 0, 0, ArgKind::kNone, kBook, kOne,
     false, RunPbInit},
    {"pb drop", "", "delete the phone book with all persons", 0, 0,
     ArgKind::kNone, kBook, kOne, false, RunPbDrop},
    {"pb import", "FILE", "add the persons of a CSV or vCard file", 1, 1,
     ArgKind::kFile, kPbImport, kOne, false, RunPbImport},
    {"pb export", "[FILE]", "write the persons as CSV or vCard", 0, 1,
     ArgKind::kFile, kPbExport, kOne, false, RunPbExport},
    {"run", "-- PROGRAM ARG...", "run a program on the server as this user", 1,
     kAnyNumber, ArgKind::kFree, kRun, kOne, true, RunRun},
    {"raw", "[FILE]", "send a command given in text form", 0, 1, ArgKind::kFile,
     kNone, kOne, false, RunRaw},
    {"collect", "NAME...", "fetch a late response", 1, kAnyNumber,
     ArgKind::kFree, kNone, kMany, false, RunCollect},
    {"check", "", "look whether everything is in order", 0, 0, ArgKind::kNone,
     kCheck, kMany, false, RunCheck},
    {"user list", "", "list the fax users", 0, 0, ArgKind::kNone, kNone, kMany,
     false, RunUserList},
    {"user add", "NAME...", "make users fax users", 1, kAnyNumber,
     ArgKind::kFree, kNone, kMany, false, RunUserAdd},
    {"completion", "SHELL", "print the completions for a shell", 1, 1,
     ArgKind::kShell, kNone, kOne, false, RunCompletion},
    {"help", "[VERB]", "show this help, or that of a verb", 0, 3,
     ArgKind::kVerb, kNone, kMany, false, RunHelp},
};

constexpr VerbTable kTable = {kVerbs, kGlobal};

}  // namespace

const VerbTable& Verbs() { return kTable; }

}  // namespace client
