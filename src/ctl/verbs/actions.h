// What the verbs do, one function a row of the table. Outcome and failures go
// to the App.
#ifndef CTL_VERBS_ACTIONS_H_
#define CTL_VERBS_ACTIONS_H_

#include <span>

namespace client {

class App;

// The server as a whole.
void RunPing(App& app);
void RunState(App& app);
void RunList(App& app);
void RunClean(App& app);
// Requests.
void RunSubmit(App& app);
void RunQueue(App& app);
void RunStatus(App& app);
void RunWait(App& app);
void RunCancel(App& app);
void RunRetry(App& app);
// Received faxes, messages, cover pages.
void RunFaxList(App& app);
void RunFaxGet(App& app);
void RunFaxPut(App& app);
void RunFaxRm(App& app);
void RunFaxPrint(App& app);
void RunFaxRoute(App& app);
void RunMsgList(App& app);
void RunMsgShow(App& app);
void RunMsgRm(App& app);
void RunCoverList(App& app);
void RunCoverTags(App& app);
void RunCoverMatch(App& app);
// The user's settings.
void RunConfigShow(App& app);
void RunConfigSet(App& app);
void RunConfigEdit(App& app);
void RunMonitorShow(App& app);
void RunMonitorOnly(App& app);
void RunMonitorExcept(App& app);
// Commands as such.
void RunRun(App& app);
void RunRaw(App& app);
void RunCollect(App& app);
// Users.
void RunUserList(App& app);
void RunUserAdd(App& app);

// The kinds of `list`: enum names without "lst-".
std::span<const char* const> ListKinds();

}  // namespace client

#endif  // CTL_VERBS_ACTIONS_H_
