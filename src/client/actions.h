// What the verbs do, one function a row of the table. Outcome and failures go
// to the App.
#ifndef CLIENT_ACTIONS_H_
#define CLIENT_ACTIONS_H_

namespace client {

class App;

// The server as a whole.
void RunPing(App& app);
void RunState(App& app);
void RunList(App& app);
void RunClean(App& app);
void RunCheck(App& app);
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
// The phone book.
void RunPbList(App& app);
void RunPbFind(App& app);
void RunPbShow(App& app);
void RunPbAdd(App& app);
void RunPbEdit(App& app);
void RunPbRm(App& app);
void RunPbCount(App& app);
void RunPbGroupList(App& app);
void RunPbGroupShow(App& app);
void RunPbGroupAdd(App& app);
void RunPbGroupEdit(App& app);
void RunPbGroupRm(App& app);
void RunPbGroupJoin(App& app);
void RunPbGroupLeave(App& app);
void RunPbInit(App& app);
void RunPbDrop(App& app);
void RunPbImport(App& app);
void RunPbExport(App& app);
// Commands as such.
void RunRun(App& app);
void RunRaw(App& app);
void RunCollect(App& app);
// Users and the program itself.
void RunUserList(App& app);
void RunUserAdd(App& app);
void RunCompletion(App& app);
void RunHelp(App& app);

}  // namespace client

#endif  // CLIENT_ACTIONS_H_
