// What the verbs of the phone book do, one function a row of the table.
#ifndef CTL_BOOK_ACTIONS_H_
#define CTL_BOOK_ACTIONS_H_

namespace client {

class App;

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

}  // namespace client

#endif  // CTL_BOOK_ACTIONS_H_
