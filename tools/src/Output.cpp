#include "Output.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Failure.h"

void Output::Document(const OrderedJson& json) {
    Line(json.dump(2, ' ', false, OrderedJson::error_handler_t::replace));
}

void Output::Table(const std::vector<std::vector<std::string>>& rows) {
    std::vector<size_t> widths(rows.front().size());
    for (const auto& row : rows) {
        std::ranges::transform(row, widths, widths.begin(),
                               [](const std::string& cell, size_t width) { return std::max(cell.size(), width); });
    }
    for (const auto& row : rows) {
        std::string line;
        for (size_t column = 0; column + 1 < row.size(); ++column) {
            line += row[column] + std::string(widths[column] - row[column].size() + 2, ' ');
        }
        Line(line + row.back());
    }
}

void Output::Flush() {
    size_t done = 0;
    while (done < waiting.size()) {
        const ssize_t count = write(STDOUT_FILENO, waiting.data() + done, waiting.size() - done);
        if (count < 0 && errno != EINTR) {
            const int error = errno;
            waiting.clear();
            throw Failure(kNoOutput, std::string("cannot write the output: ") + std::strerror(error));
        }
        done += static_cast<size_t>(std::max<ssize_t>(count, 0));
    }
    waiting.clear();
}

bool Output::IsReaderGone() {
    pollfd output{.fd = STDOUT_FILENO, .events = 0, .revents = 0};
    return poll(&output, 1, 0) > 0 && (output.revents & POLLERR) != 0;
}
