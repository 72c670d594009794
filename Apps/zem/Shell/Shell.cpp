#include "Shell.h"

#include "Completion.h"
#include "History.h"
#include "Process/Output.h"

#include <histedit.h>

#include <cerrno>
#include <clocale>
#include <cwchar>
#include <string_view>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace zem::host {

namespace {

constexpr const char* prompt = "zem> ";
constexpr std::string_view opening =
    "help or ? explains the commands, exit or Ctrl-D ends the shell";
constexpr int historySize = 1000;

} // namespace

/// The line editor. It waits for keys in `readKey` only. Output of other threads is shown there, on
/// the thread that draws.
class Shell::Editor {
  public:
    explicit Editor(std::function<std::vector<std::string>()> subscriptionNames)
        : subscriptionNames(std::move(subscriptionNames))
        , file(historyFile())
        , modesFound(terminalModes())
        , edit(el_init("zem", stdin, stdout, stderr))
        , past(history_init()) {
        // The text is UTF-8 whatever the environment says.
        std::setlocale(LC_CTYPE, "C.UTF-8");
        el_set(edit, EL_CLIENTDATA, this);
        el_set(edit, EL_PROMPT, +[](EditLine*) { return const_cast<char*>(prompt); });
        el_set(edit, EL_EDITOR, "emacs");
        el_set(edit, EL_GETCFN, readKeyOf);
        // The terminal passes keys on one by one and does not show them, from here to the end. The
        // line editor leaves its mode at the end of each line. So its other mode is the same: else
        // the terminal would show keys typed before the next prompt, and change Ctrl-D.
        el_set(edit, EL_SETTY, "-x", "-icanon", "-echo", nullptr);
        // The narrow form would keep copies of its texts for ever.
        el_wset(edit, EL_ADDFN, L"zem-complete", L"completes the word", completeOf);
        el_set(edit, EL_BIND, "^I", "zem-complete", nullptr);
        el_set(edit, EL_BIND, "^R", "em-inc-search-prev", nullptr);
        HistEvent event;
        history(past, &event, H_SETSIZE, historySize);
        history(past, &event, H_SETUNIQUE, 1);
        if (file) {
            history(past, &event, H_LOAD, file->c_str());
        }
        el_set(edit, EL_HIST, history, past);
    }

    ~Editor() {
        el_end(edit);
        history_end(past);
    }

    Editor(const Editor&) = delete;
    Editor& operator=(const Editor&) = delete;

    std::optional<std::string> next() {
        el_resize(edit);
        while (beginEditing()) {
            int length = 0;
            const char* line = el_gets(edit, &length);
            std::optional<std::string> typed;
            if (line != nullptr && length > 0) {
                typed.emplace(line, static_cast<std::size_t>(length));
            }
            const End end = endEditing(typed.has_value());
            if (end == End::abandoned) {
                continue;
            }
            if (end == End::stopped || !typed) {
                return std::nullopt;
            }
            remember(*typed);
            return typed->substr(0, typed->find('\n'));
        }
        return std::nullopt;
    }

    void stop() {
        const platform::Lock lock(mutex);
        stopped = true;
        if (editing) {
            wakeUp.wake();
        } else {
            restoreTerminal();
        }
    }

    bool abandon() {
        const platform::Lock lock(mutex);
        if (editing) {
            abandoned = true;
            wakeUp.wake();
        } else {
            writeLine(STDOUT_FILENO, "^C");
        }
        return editing;
    }

    /// Any thread.
    void print(int descriptor, std::string_view text) {
        const platform::Lock lock(mutex);
        if (editing) {
            printed.emplace_back(descriptor, text);
            wakeUp.wake();
        } else {
            writeLine(descriptor, text);
        }
    }

  private:
    static Editor& of(EditLine* edit) {
        void* self = nullptr;
        el_get(edit, EL_CLIENTDATA, &self);
        return *static_cast<Editor*>(self);
    }
    static int readKeyOf(EditLine* edit, wchar_t* key) { return of(edit).readKey(key); }
    static unsigned char completeOf(EditLine* edit, int) { return of(edit).completeWord(); }

    /// Returns 1 and the key, 0 at the end of the input, -1 if the line is given up.
    int readKey(wchar_t* key) {
        std::mbstate_t state{};
        for (;;) {
            if (isStopped()) {
                return 0;
            }
            if (isAbandoned()) {
                return -1;
            }
            if (!wakeUp.waitForInput(STDIN_FILENO)) {
                showPrinted();
                continue;
            }
            char byte = 0;
            const ssize_t length = read(STDIN_FILENO, &byte, 1);
            if (length < 0 && (errno == EINTR || errno == EAGAIN)) {
                continue;
            }
            if (length <= 0) {
                return 0;
            }
            const std::size_t used = std::mbrtowc(key, &byte, 1, &state);
            if (used == static_cast<std::size_t>(-2)) {
                continue; // the rest of the character is to come
            }
            if (used == static_cast<std::size_t>(-1)) {
                state = {};
                continue; // not UTF-8: ignored
            }
            return 1;
        }
    }

    unsigned char completeWord() {
        const LineInfo* line = el_line(edit);
        const std::string_view before(line->buffer,
                                      static_cast<std::size_t>(line->cursor - line->buffer));
        const Completion found = complete(before, subscriptionNames);
        if (found.words.empty()) {
            return CC_REFRESH_BEEP;
        }
        std::string rest = commonBeginning(found.words).substr(found.length);
        if (found.words.size() == 1) {
            rest += ' ';
        }
        if (!rest.empty()) {
            el_insertstr(edit, rest.c_str());
            return CC_REFRESH;
        }
        std::string list;
        for (const std::string& word : found.words) {
            list += (list.empty() ? "" : "  ") + word;
        }
        writeLine(STDOUT_FILENO, "\n" + list);
        return CC_REDISPLAY;
    }

    /// Shows waiting output above the typed line.
    void showPrinted() {
        const platform::Lock lock(mutex);
        if (printed.empty()) {
            return;
        }
        clearLine();
        flushPrinted();
        el_set(edit, EL_REFRESH);
    }

    void flushPrinted() {
        for (const auto& [descriptor, text] : std::exchange(printed, {})) {
            writeLine(descriptor, text);
        }
    }

    /// Clears the prompt and the typed text, which may take several rows.
    void clearLine() {
        const LineInfo* line = el_line(edit);
        std::size_t column = std::string_view(prompt).size();
        for (const char* at = line->buffer; at != line->cursor; ++at) {
            const bool continues = (static_cast<unsigned char>(*at) & 0xC0U) == 0x80U;
            column += continues ? 0 : 1;
        }
        winsize size{};
        std::string clear = "\r";
        if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
            for (std::size_t row = column / size.ws_col; row > 0; --row) {
                clear += "\x1b[A";
            }
        }
        clear += "\x1b[J";
        std::string_view rest = clear;
        while (!rest.empty()) {
            const ssize_t written = write(STDOUT_FILENO, rest.data(), rest.size());
            if (written < 0) {
                break;
            }
            rest.remove_prefix(static_cast<std::size_t>(written));
        }
    }

    bool beginEditing() {
        const platform::Lock lock(mutex);
        if (!stopped) {
            suspendStatusLine();
            editing = true;
            abandoned = false;
        }
        return editing;
    }

    static termios terminalModes() {
        termios modes{};
        tcgetattr(STDIN_FILENO, &modes);
        return modes;
    }

    void restoreTerminal() { tcsetattr(STDIN_FILENO, TCSADRAIN, &modesFound); }

    enum class End { line, abandoned, stopped };

    /// An interruption counts even after the line was complete.
    End endEditing(bool isComplete) {
        const platform::Lock lock(mutex);
        editing = false;
        if (abandoned || !isComplete) {
            // The cursor stands behind the prompt or the typed text.
            writeLine(STDOUT_FILENO, abandoned ? "^C" : "");
        }
        flushPrinted();
        if (stopped || (!isComplete && !abandoned)) {
            restoreTerminal();
        }
        resumeStatusLine();
        return stopped ? End::stopped : abandoned ? End::abandoned : End::line;
    }

    bool isStopped() {
        const platform::Lock lock(mutex);
        return stopped;
    }

    bool isAbandoned() {
        const platform::Lock lock(mutex);
        return abandoned;
    }

    void remember(const std::string& line) {
        if (line.find_first_not_of(" \t\n") == std::string::npos) {
            return;
        }
        HistEvent event;
        history(past, &event, H_ENTER, line.c_str());
        if (file) {
            history(past, &event, H_SAVE, file->c_str());
        }
    }

    const std::function<std::vector<std::string>()> subscriptionNames;
    const std::optional<std::filesystem::path> file;
    const termios modesFound;
    EditLine* const edit;
    History* const past;
    WakeUp wakeUp;

    platform::Mutex mutex;
    bool editing = false;
    bool stopped = false;
    bool abandoned = false;
    std::vector<std::pair<int, std::string>> printed;
};

Shell::Shell(std::function<std::vector<std::string>()> subscriptionNames)
    : editor(std::make_shared<Editor>(std::move(subscriptionNames))) {
    printLine(opening);
    setLinePrinter([weak = std::weak_ptr(editor)](int descriptor, std::string_view text) {
        if (const auto alive = weak.lock()) {
            alive->print(descriptor, text);
        } else {
            writeLine(descriptor, text);
        }
    });
}

Shell::~Shell() {
    setLinePrinter(nullptr);
}

std::optional<std::string> Shell::next() {
    return editor->next();
}

void Shell::stop() {
    editor->stop();
}

bool Shell::abandon() {
    return editor->abandon();
}

} // namespace zem::host
