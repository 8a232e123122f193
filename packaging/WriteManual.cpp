// Writes the manual and the shells' completions, from what --help is made of, below a directory
// that is laid out like /usr/share: marigold-manual DIRECTORY DATE

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "app/CommandLine.h"

using namespace marigold;

namespace {

std::string replaced(std::string_view text, char from, std::string_view to) {
  std::string result;
  for (const char character : text) {
    if (character == from) {
      result += to;
    } else {
      result += character;
    }
  }
  return result;
}

// As text of a manual: no line of ours begins with a control character.
std::string roff(std::string_view text) {
  return replaced(replaced(text, '\\', "\\e"), '-', "\\-");
}

// Within single quotes of a shell.
std::string shellWord(std::string_view text) {
  return "'" + replaced(text, '\'', R"('\'')") + "'";
}

void list(std::ostream& out, std::string_view title, const std::vector<HelpEntry>& entries) {
  out << ".SH " << title << '\n';
  for (const HelpEntry& entry : entries) {
    out << ".TP\n.B " << roff(entry.name);
    if (!entry.argument.empty()) {
      out << " \\fI" << roff(entry.argument) << "\\fR";
    }
    out << '\n' << roff(entry.text) << '\n';
  }
}

std::string manual(const CommandHelp& help, std::string_view date) {
  std::ostringstream out;
  std::string_view does = help.purpose;
  does.remove_prefix(does.find(' ') + 1);
  does.remove_suffix(1);
  std::string version = versionText();
  version.pop_back();
  out << ".TH MARIGOLD 1 " << date << " \"" << version << "\" \"User Commands\"\n"
      << ".SH NAME\nmarigold, marigold\\-request \\- " << roff(does) << '\n'
      << ".SH SYNOPSIS\n.B marigold\n.RI [ FLAG ]\n"
      << ".SH DESCRIPTION\n"
      << roff(help.purpose) << '\n'
      << roff(help.description) << '\n'
      << ".PP\n.B marigold\\-request\nis for Marigold alone: it makes the one request that "
         "Claude's "
         "usage takes, and ends with it.\n";
  list(out, "OPTIONS", help.flags);
  out << ".PP\n" << roff(help.afterFlags) << '\n';
  list(out, "ENVIRONMENT", help.environment);
  list(out, "FILES", help.files);
  list(out, "EXIT STATUS", help.statuses);
  return out.str();
}

std::string bash(const CommandHelp& help) {
  std::string paths;
  std::string flags;
  for (const HelpEntry& flag : help.flags) {
    flags.append(flags.empty() ? "" : " ").append(flag.name);
    if (!flag.argument.empty()) {
      paths.append(paths.empty() ? "" : " | ").append(flag.name);
    }
  }
  return "# bash completion for marigold\n"
         "_marigold() {\n"
         "  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}\n"
         "  case $before in\n"
         "    " +
         paths +
         ")\n"
         "      compopt -o filenames\n"
         "      mapfile -t COMPREPLY < <(compgen -f -- \"$word\")\n"
         "      ;;\n"
         "    *) mapfile -t COMPREPLY < <(compgen -W '" +
         flags +
         "' -- \"$word\") ;;\n"
         "  esac\n"
         "}\n"
         "complete -F _marigold marigold\n";
}

std::string zsh(const CommandHelp& help) {
  std::string text = "#compdef marigold\n_arguments";
  for (const HelpEntry& flag : help.flags) {
    const std::string described =
        std::string(flag.name) + "[" + replaced(replaced(flag.text, '[', "\\["), ']', "\\]") + "]";
    text += " \\\n  " + shellWord(described + (flag.argument.empty() ? "" : ":path:_files"));
  }
  return text + "\n";
}

std::string fish(const CommandHelp& help) {
  std::string text = "complete -c marigold -f\n";
  for (const HelpEntry& flag : help.flags) {
    text.append("complete -c marigold -l ").append(flag.name.substr(2));
    text += (flag.argument.empty() ? " -d " : " -r -F -d ") + shellWord(flag.text) + "\n";
  }
  return text;
}

bool write(const std::filesystem::path& path, const std::string& text) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream file(path);
  file << text;
  return file.flush().good();
}

}  // namespace

int main(int argc, char** argv) {
  const std::span<char*> words(argv, static_cast<std::size_t>(argc));
  if (words.size() != 3) {
    std::cerr << "usage: marigold-manual DIRECTORY DATE\n";
    return EXIT_FAILURE;
  }
  const std::filesystem::path share = words[1];
  const CommandHelp help = commandHelp();
  const bool done = write(share / "man/man1/marigold.1", manual(help, words[2])) &&
                    write(share / "man/man1/marigold-request.1", ".so man1/marigold.1\n") &&
                    write(share / "bash-completion/completions/marigold", bash(help)) &&
                    write(share / "zsh/vendor-completions/_marigold", zsh(help)) &&
                    write(share / "fish/vendor_completions.d/marigold.fish", fish(help));
  return done ? EXIT_SUCCESS : EXIT_FAILURE;
}
