// The lists of a user's own directories.
#ifndef CTL_VERBS_LISTS_H_
#define CTL_VERBS_LISTS_H_

namespace client {

class App;

// Shows the list of that type, narrowed by --since.
void ShowMessageList(App& app, const char* listtype);

}  // namespace client

#endif  // CTL_VERBS_LISTS_H_
