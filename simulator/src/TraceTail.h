/// Follows the service's live trace file; each line an entry of the journal.
#ifndef TRACE_TAIL_H
#define TRACE_TAIL_H

#include <string>
#include <thread>

#include "Descriptor.h"
#include "Journal.h"

class TraceTail {
  public:
    /// directory, file  where the live file lies or will lie, as the host sees it. Both may come, go and come again;
    /// a renamed live file is read to its end. A file that came and went between two looks is not seen.
    TraceTail(Journal& journal, std::string directory, const std::string& file);
    ~TraceTail();
    TraceTail(const TraceTail&) = delete;
    TraceTail& operator=(const TraceTail&) = delete;

    /// Takes a line apart: stamp, source file (entry's subject), message (its text).
    static Entry Parse(const std::string& line);

  private:
    void Run();
    void Look();
    void ReadOn();

    Journal& journal;
    const std::string directory;
    const std::string path;
    Descriptor notifications;
    Descriptor stop;
    Descriptor file;
    std::string line;  ///< begun, not ended yet
    std::thread reader;
};

#endif
