// Lines from a file or a pipe (see LineReader.hpp).
#include "tools/shell/LineReader.hpp"

namespace kova::shell {
namespace {

class PlainLineReader final : public LineReader {
  public:
    explicit PlainLineReader(FILE* in) : in_(in) {}

    std::optional<std::string> readLine() override {
        std::string line;
        int c = std::fgetc(in_);
        if (c == EOF) return std::nullopt;
        for (; c != EOF && c != '\n'; c = std::fgetc(in_))
            if (line.size() < longestLine) line += static_cast<char>(c);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        return line;
    }
    bool interactive() const override { return false; }

  private:
    FILE* in_;
};

} // namespace

std::unique_ptr<LineReader> plainLineReader(FILE* in) {
    return std::make_unique<PlainLineReader>(in);
}

} // namespace kova::shell
