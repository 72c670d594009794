#include "Words.h"

#include <utility>

namespace zem::host {

namespace {

bool isSpace(char character) {
    return character == ' ' || character == '\t' || character == '\r';
}

class Splitter {
  public:
    explicit Splitter(std::string_view line)
        : line(line) {}

    std::vector<Word> split() {
        std::vector<Word> words;
        for (;;) {
            while (!atEnd() && isSpace(line[at])) {
                ++at;
            }
            if (atEnd()) {
                return words;
            }
            words.push_back(readWord());
        }
    }

  private:
    bool atEnd() const { return at == line.size(); }

    Word readWord() {
        Word word;
        word.begin = at;
        int pieces = 0;
        bool anyQuoted = false;
        while (!atEnd() && !isSpace(line[at])) {
            const char character = line[at];
            ++pieces;
            if (character == '\'' || character == '"') {
                anyQuoted = true;
                readQuoted(word);
            } else {
                if (character == '\\' && at + 1 < line.size()) {
                    ++at;
                }
                word.text += line[at++];
            }
        }
        word.end = at;
        word.isQuoted = anyQuoted && pieces == 1;
        return word;
    }

    void readQuoted(Word& word) {
        const char quote = line[at++];
        word.isComplete = false;
        while (!atEnd()) {
            if (line[at] == quote) {
                ++at;
                word.isComplete = true;
                return;
            }
            const bool isEscape = quote == '"' && line[at] == '\\' && at + 1 < line.size() &&
                                  (line[at + 1] == '"' || line[at + 1] == '\\');
            if (isEscape) {
                ++at;
            }
            word.text += line[at++];
        }
    }

    std::string_view line;
    std::size_t at = 0;
};

} // namespace

std::vector<Word> splitWords(std::string_view line) {
    return Splitter(line).split();
}

} // namespace zem::host
