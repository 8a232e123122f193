#include "app/CommandLine.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>

namespace marigold {

namespace {

using Mode = Command::Mode;

struct Flag {
  HelpEntry help;
  Mode mode{};

  [[nodiscard]] bool takesPath() const { return !help.argument.empty(); }
};

constexpr std::string_view shortFlag = "--short";
constexpr std::string_view jsonFlag = "--json";
constexpr std::string_view followFlag = "--follow";

// In the order they are checked.
constexpr std::array flags{
    Flag{.help = {.name = "--selftest", .text = "check the program and what it needs"},
         .mode = Mode::selfTest},
    Flag{.help = {.name = "--dump-codex",
                  .text = "explain the Codex reading: the files, the record"},
         .mode = Mode::dumpCodex},
    Flag{.help = {.name = "--shot", .argument = "PATH", .text = "draw the popover to a PNG file"},
         .mode = Mode::shot},
    Flag{.help = {.name = "--shot-settings",
                  .argument = "PATH",
                  .text = "the same with its settings open"},
         .mode = Mode::shotSettings},
    Flag{.help = {.name = "--shot-off",
                  .argument = "PATH",
                  .text = "the same with Claude turned off"},
         .mode = Mode::shotOff},
    Flag{.help = {.name = "--shot-reconnect",
                  .argument = "PATH",
                  .text = "the same with a Claude login that needs attention"},
         .mode = Mode::shotReconnect},
    Flag{.help = {.name = "--shot-held",
                  .argument = "PATH",
                  .text = "the same with that login held back"},
         .mode = Mode::shotHeld},
    Flag{.help = {.name = "--shot-menubar",
                  .argument = "PATH",
                  .text = "draw the mark in all its looks to a PNG file"},
         .mode = Mode::shotMenuBar},
    Flag{.help = {.name = "--open",
                  .text = "open the popover, of the Marigold that runs or of one started for it"},
         .mode = Mode::open},
    Flag{.help = {.name = "--quit", .text = "end the Marigold that runs, and wait until it has"},
         .mode = Mode::quit},
    Flag{.help = {.name = "--status", .text = "print what the mark shows, a line per provider"},
         .mode = Mode::status},
    Flag{.help = {.name = shortFlag, .text = "the same as the mark's texts in one line"},
         .mode = Mode::status},
    Flag{.help = {.name = jsonFlag, .text = "the same as one line of JSON, with all readings"},
         .mode = Mode::status},
    Flag{.help = {.name = followFlag,
                  .text = "with one of these: print again whatever changes, until it is ended"},
         .mode = Mode::status},
    Flag{.help = {.name = "--help", .text = "print this"}, .mode = Mode::help},
    Flag{.help = {.name = "--version", .text = "print the version"}, .mode = Mode::version},
};

constexpr std::size_t helpWidth = 80;  // columns

// The text broken into lines, those but the first moved in by `indent`. It begins in that column.
void wrap(std::string& out, std::string_view text, std::size_t indent) {
  std::size_t column = indent;
  while (!text.empty()) {
    const std::string_view word = text.substr(0, text.find(' '));
    text.remove_prefix(std::min(text.size(), word.size() + 1));
    if (column > indent && column + 1 + word.size() > helpWidth) {
      out.append(1, '\n').append(indent, ' ');
      column = indent;
    }
    if (column > indent) {
      out += ' ';
      ++column;
    }
    out += word;
    column += word.size();
  }
  out += '\n';
}

void list(std::string& out, const std::vector<HelpEntry>& entries) {
  const auto name = [](const HelpEntry& entry) {
    return std::string(entry.name).append(entry.argument.empty() ? "" : " ").append(entry.argument);
  };
  std::size_t longest = 0;
  for (const HelpEntry& entry : entries) {
    longest = std::max(longest, name(entry).size());
  }
  for (const HelpEntry& entry : entries) {
    std::string start = "  " + name(entry);
    start.resize(longest + 4, ' ');
    out += start;
    wrap(out, entry.text, start.size());
  }
}

}  // namespace

Command parseCommandLine(std::span<const std::string> arguments) {
  const auto has = [&](std::string_view name) {
    return std::ranges::find(arguments, name) != arguments.end();
  };
  for (const Flag& flag : flags) {
    const auto found = std::ranges::find(arguments, flag.help.name);
    if (found == arguments.end()) {
      continue;
    }
    if (flag.mode == Mode::status) {
      const StatusForm other = has(shortFlag) ? StatusForm::shortLine : StatusForm::lines;
      return {.mode = flag.mode,
              .flag = flag.help.name,
              .form = has(jsonFlag) ? StatusForm::json : other,
              .follows = has(followFlag)};
    }
    if (!flag.takesPath()) {
      return {.mode = flag.mode, .flag = flag.help.name};
    }
    if (const auto path = found + 1; path != arguments.end()) {
      const bool dark = path + 1 != arguments.end() && *(path + 1) == "dark";
      return {.mode = flag.mode,
              .flag = flag.help.name,
              .path = *path,
              .scheme = dark ? MarigoldTheme::Scheme::dark : MarigoldTheme::Scheme::light};
    }
  }
  return {};
}

CommandHelp commandHelp() {
  CommandHelp help{
      .purpose = "Marigold shows how much of your allowance with Claude, Codex and Grok is spent.",
      .description =
          "Without a flag it runs until it is told to quit; where it runs already, its popover "
          "opens instead. Without a display it prints, at each change of the mark, its tooltip, a "
          "line per window, and then its texts.",
      .flags = {},
      .afterFlags = "After the path of a picture of the popover, dark or light chooses its colors.",
      .environment = {{.name = "CODEX_HOME",
                       .text = "the Codex tool's directory instead of ~/.codex"},
                      {.name = "GROK_HOME", .text = "the Grok tool's directory instead of ~/.grok"},
                      {.name = "CLAUDE_CONFIG_DIR",
                       .text = "Claude Code's directory instead of ~/.claude"},
                      {.name = "MARIGOLD_CACHE_DIR", .text = "where the last readings are kept"}},
      .files = {{.name = "~/.config/app.marigold.Marigold/preferences.json",
                 .text = "what was chosen; followed while Marigold runs"},
                {.name = "~/.local/share/app.marigold.Marigold/cache",
                 .text = "the last readings, one small file per provider"},
                {.name = "$XDG_RUNTIME_DIR/app.marigold.Marigold",
                 .text = "where the Marigold that runs is found by its user's other starts"},
                {.name = "~/.config/autostart/app.marigold.Marigold.desktop",
                 .text = "there while Marigold is launched at login"}},
      .statuses = {{.name = "0", .text = "what was asked for was done"},
                   {.name = "1", .text = "it was not, or the self-test failed"}}};
  std::ranges::transform(flags, std::back_inserter(help.flags), &Flag::help);
  return help;
}

std::string helpText() {
  const CommandHelp help = commandHelp();
  std::string out;
  wrap(out, help.purpose, 0);
  out += "\nusage: marigold [FLAG]\n\n";
  wrap(out, help.description, 0);
  out += '\n';
  list(out, help.flags);
  out += '\n';
  wrap(out, help.afterFlags, 0);
  out += "\nEnvironment:\n";
  list(out, help.environment);
  return out;
}

std::string versionText() {
  return std::string("Marigold ") + MARIGOLD_VERSION + "\n";
}

}  // namespace marigold
