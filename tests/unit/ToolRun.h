/// Runs the client program as people do, and keeps all that it says.
#ifndef TOOL_RUN_H
#define TOOL_RUN_H

#include <sys/types.h>

#include <string>
#include <vector>

struct ToolResult {
    int status = -1;  ///< exit status; -1: ended by a signal, or not at all
    std::string output{};
    std::string errors{};

    /// The output's lines, without their ends.
    std::vector<std::string> Lines() const;
};

/// Waits for its end. outputPath: where its standard output goes instead.
ToolResult RunTool(const std::vector<std::string>& arguments, const std::string& input = "",
                   const std::string& outputPath = "");

/// One that runs until it is told to end; its standard output is read line by line.
class ToolProcess {
  public:
    explicit ToolProcess(const std::vector<std::string>& arguments);
    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;
    /// Kills it.
    ~ToolProcess();

    /// The next line; fails the test, and is empty, when none comes.
    std::string Line();
    /// Closes the reading end of its output.
    void CloseOutput();
    void Signal(int signal) const;
    /// Its exit status; -1 when it ended by a signal. Fails the test when it does not end.
    int Wait();

  private:
    pid_t pid = -1;
    int output = -1;
    std::string waiting;
};

#endif
