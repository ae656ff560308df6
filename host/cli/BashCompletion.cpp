#include "host/cli/BashCompletion.h"

#include <CLI/CLI.hpp>
#include <vector>

#include "host/base/TextFormat.h"
#include "host/cli/FlagChoices.h"

namespace corvane::host {
namespace {

/// The part that is the same for every command line. It calls two functions that are written from this one:
/// `_corvane_flags_of COMMAND` sets `flags`; `_corvane_choices_of COMMAND FLAG` sets `kind` and `choices` of a flag
/// that takes a value, or of the words without a flag when FLAG is empty.
constexpr const char* script = R"(
# Fills 'words' with the words up to the one that is completed, which bash cuts at ':' and '='.
_corvane_join_words() {
  local index word
  words=("${COMP_WORDS[0]-}")
  for ((index = 1; index <= COMP_CWORD; ++index)); do
    word=${COMP_WORDS[index]-}
    if [[ ${#words[@]} -gt 1 && -n $word && $word != -* && ($word == [:=]* || ${words[-1]} == *[:=]) ]]; then
      words[-1]+=$word
    else
      words+=("$word")
    fi
  done
}

# Appends what compgen finds.
_corvane_offer() {
  local found
  mapfile -t found < <(compgen "$@")
  COMPREPLY+=("${found[@]}")
}

# Offers a drive's address, and behind a beginning that a path follows the files.
_corvane_offer_address() {
  local value=$1 before=$2 beginning
  for beginning in $choices; do
    if [[ $beginning == *PATH && $value == "${beginning%PATH}"* ]]; then
      _corvane_offer -P "$before${beginning%PATH}" -f -- "${value#"${beginning%PATH}"}"
    else
      _corvane_offer -P "$before" -W "${beginning%PATH}" -- "$value"
    fi
  done
}

# Offers what 'kind' and 'choices' say of a value; 'before' stands in front of it in the same word.
_corvane_offer_value() {
  local value=$1 before=$2
  case $kind in
    words) _corvane_offer -P "$before" -W "$choices" -- "$value" ;;
    files) compopt -o filenames 2>/dev/null; _corvane_offer -P "$before" -f -- "$value" ;;
    folders) compopt -o filenames 2>/dev/null; _corvane_offer -P "$before" -d -- "$value" ;;
    addresses) compopt -o nospace 2>/dev/null; _corvane_offer_address "$value" "$before" ;;
    lists)
      compopt -o nospace 2>/dev/null
      if [[ $value == *,* ]]; then before+=${value%,*},; fi
      _corvane_offer -P "$before" -W "$choices" -- "${value##*,}"
      ;;
    entries) compopt -o nospace 2>/dev/null; _corvane_offer -P "$before" -S = -W "$choices" -- "$value" ;;
    faults)
      compopt -o nospace 2>/dev/null
      if [[ $value == *:* ]]; then
        _corvane_offer -P "$before${value%%:*}:" -W 'at=command: rate=' -- "${value#*:}"
      else
        _corvane_offer -P "$before" -S : -W "$choices" -- "$value"
      fi
      ;;
  esac
}

_corvane() {
  local IFS=$' \t\n' words=() word command='' flag='' flags='' kind='' choices='' current breaks
  COMPREPLY=()
  _corvane_join_words
  current=${words[-1]}
  for word in "${words[@]:1:${#words[@]}-2}"; do
    if [[ -n $flag ]]; then
      flag=''
    elif [[ $word == -* && $word != *=* ]]; then
      _corvane_choices_of "$command" "$word"
      if [[ -n $kind ]]; then flag=$word; fi
    elif [[ $word != -* && -z $command ]]; then
      command=$word
    fi
  done
  _corvane_flags_of "$command"
  if [[ -n $flag ]]; then
    _corvane_choices_of "$command" "$flag"
    _corvane_offer_value "$current" ''
  elif [[ $current == -*=* ]]; then
    _corvane_choices_of "$command" "${current%%=*}"
    _corvane_offer_value "${current#*=}" "${current%%=*}="
  elif [[ $current == -* ]]; then
    _corvane_offer -W "$flags" -- "$current"
  else
    _corvane_choices_of "$command" ''
    _corvane_offer_value "$current" ''
    if [[ -n $command && -z $current ]]; then _corvane_offer -W "$flags"; fi
  fi
  # bash keeps what is in front of its cut.
  breaks=${COMP_WORDBREAKS-}
  breaks=${breaks//[!:=]/}
  if [[ -n $breaks ]]; then COMPREPLY=("${COMPREPLY[@]#"${current%"${current##*[$breaks]}"}"}"); fi
}

complete -F _corvane corvane
)";

const char* kindName(FlagChoices::Kind kind) {
  switch (kind) {
    case FlagChoices::Kind::files:
      return "files";
    case FlagChoices::Kind::folders:
      return "folders";
    case FlagChoices::Kind::addresses:
      return "addresses";
    case FlagChoices::Kind::words:
      return "words";
    case FlagChoices::Kind::lists:
      return "lists";
    case FlagChoices::Kind::entries:
      return "entries";
    case FlagChoices::Kind::faults:
      return "faults";
    case FlagChoices::Kind::nothing:
      break;
  }
  return "nothing";
}

std::string joined(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) {
    line += (line.empty() ? "" : " ") + word;
  }
  return line;
}

/// "--drive", or "-h" and "--help".
std::vector<std::string> namesOf(const CLI::Option& option) {
  std::vector<std::string> names;
  for (const std::string& name : option.get_snames()) {
    names.push_back("-" + name);
  }
  for (const std::string& name : option.get_lnames()) {
    names.push_back("--" + name);
  }
  return names;
}

std::string flagsCase(const CLI::App& app, const std::string& command) {
  std::vector<std::string> flags;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : namesOf(*option)) {
      flags.push_back(name);
    }
  }
  return "    " + shellQuoted(command) + ") flags=" + shellQuoted(joined(flags)) + " ;;\n";
}

std::string choicesCase(const std::string& command, const std::string& flag, const FlagChoices& choices) {
  return "    " + shellQuoted(command + " " + flag) + ") kind=" + kindName(choices.kind) +
         " choices=" + shellQuoted(joined(choices.words)) + " ;;\n";
}

std::string choicesCases(const CLI::App& app, const std::string& command) {
  std::string cases;
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_positional()) {
      cases += choicesCase(command, "", choicesOf(*option));
    } else if (option->get_items_expected_max() > 0) {
      for (const std::string& name : namesOf(*option)) {
        cases += choicesCase(command, name, choicesOf(*option));
      }
    }
  }
  return cases;
}

}  // namespace

std::string bashCompletion(const CLI::App& app) {
  FlagChoices commands{FlagChoices::Kind::words, {}};
  std::string flags = flagsCase(app, "");
  std::string choices = choicesCases(app, "");
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    commands.words.push_back(command->get_name());
    flags += flagsCase(*command, command->get_name());
    choices += choicesCases(*command, command->get_name());
  }
  // Without a command, a word without a flag is one.
  choices += choicesCase("", "", commands);
  return "# Completes the command lines of corvane in bash.\n\n_corvane_flags_of() {\n  flags=''\n  case $1 in\n" +
         flags + "  esac\n}\n\n_corvane_choices_of() {\n  kind='' choices=''\n  case \"$1 $2\" in\n" + choices +
         "  esac\n}\n" + script;
}

}  // namespace corvane::host
