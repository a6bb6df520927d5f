/// The scripts of the module that the service runs.
#ifndef SCRIPT_H
#define SCRIPT_H

/// Whose end is taken for the script's. Several threads run scripts, and each can meet the others' children.
enum class ScriptEnd {
    AnyChild,  ///< that of the next child to end, whichever it is; the script may go on meanwhile
    ItsOwn     ///< its own only, also when another thread's AnyChild was given it
};

/// One run of a script; the texts are borrowed for the run.
struct Script {
    const char* path;
    const char* name;        ///< argument zero
    const char* argument;    ///< the one argument; null: none
    const char* action;      ///< what the log calls the run; a "start" also where the script has no argument
    const char* resultFile;  ///< deleted before the script starts; null: none
    ScriptEnd end;
};

/// Runs the script and blocks until that end, without limit. Logs failures and the end; the caller has logged the
/// beginning. Answers the end's raw wait status, 256 when there was no script to run; 0 when nothing was started, or
/// when the script has ended but nobody knows how. Any thread.
int RunScript(const Script& script);

#endif
