// The verbs that tell about the table of verbs itself.
#ifndef CTL_HELP_H_
#define CTL_HELP_H_

namespace client {

class App;

// Prints the script of a shell, "bash", "zsh" or "fish".
void RunCompletion(App& app);
// Shows the help of the verb that the arguments name, or that has --help;
// without one, of all.
void RunHelp(App& app);

}  // namespace client

#endif  // CTL_HELP_H_
