/// The tool's standard output, whose failures count: a value that nobody could read was not told.
#ifndef OUTPUT_H
#define OUTPUT_H

#include <string>
#include <vector>

#include "UiValues.h"

class Output {
  public:
    /// Kept until Flush.
    void Line(const std::string& line) { waiting += line + "\n"; }
    /// One indented JSON document.
    void Document(const OrderedJson& json);
    /// Rows of the same length, the first one being the titles; columns as wide as they need to be.
    void Table(const std::vector<std::vector<std::string>>& rows);
    /// Throws Failure (kNoOutput) when it cannot be written: a closed pipe, a full disk.
    void Flush();
    /// Forgets what waits.
    void Clear() { waiting.clear(); }
    /// Whether the pipe's other end is closed, which is otherwise noticed by the next line only.
    static bool IsReaderGone();

  private:
    std::string waiting;
};

#endif
