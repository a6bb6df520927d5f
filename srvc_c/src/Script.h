/// The scripts of the module that the service runs.
#ifndef SCRIPT_H
#define SCRIPT_H

/// Whose end is taken for the script's. Several threads run scripts, and each can meet the others' children.
enum class ScriptEnd {
    AnyChilds,  ///< that of the next child to end, whichever it is; the script may go on meanwhile
    ItsOwn      ///< its own; when another thread has taken that one, the next child's to end
};

/// One run of a script; the texts are borrowed for the run.
struct Script {
    const char* path;
    const char* name;        ///< argument zero
    const char* argument;    ///< the one argument; null: none
    const char* action;      ///< "start" or "stop": what the log calls the run
    const char* resultFile;  ///< deleted before the script starts; null: none
    ScriptEnd end;
};

/// Runs the script and blocks until a child has ended, without limit. Logs failures and the end; the caller has logged
/// the beginning. Answers that end's raw wait status, 256 when there was no script to run; 0 when nothing was started
/// or nothing is left to wait for. Any thread.
int RunScript(const Script& script);

#endif
