// The lists of a user's own directories.
#ifndef CLIENT_LISTS_H_
#define CLIENT_LISTS_H_

namespace client {

class App;

// Shows the list of that type, narrowed by --since.
void ShowMessageList(App& app, const char* listtype);

}  // namespace client

#endif  // CLIENT_LISTS_H_
