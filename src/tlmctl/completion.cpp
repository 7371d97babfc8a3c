#include <iostream>
#include <map>
#include <memory>

#include "tlmctl/commands.h"
#include "tlmctl/exit_code.h"

namespace tlm::ctl {

namespace {

// Each asks 'tlmctl complete' for the candidates: a line each, with a description behind a tab, or a word that stands
// for the names of files.

constexpr char kBash[] = R"(# Completion of tlmctl for bash.
_tlmctl() {
    local words=() glue='' i line
    for ((i = 1; i <= COMP_CWORD; i++)); do # bash cuts words at = and :
        if [[ ${#words[@]} -gt 0 && ( $glue || ${COMP_WORDS[i]} == [=:] ) ]]; then
            words[-1]+=${COMP_WORDS[i]}
        else
            words+=("${COMP_WORDS[i]}")
        fi
        glue=''
        [[ ${COMP_WORDS[i]} == [=:] ]] && glue=yes
    done
    local word=${words[-1]} tail=${COMP_WORDS[COMP_CWORD]}
    [[ $tail == [=:] ]] && tail=''
    local head=${word%"$tail"} program=${1/#\~/$HOME}
    COMPREPLY=()
    compopt -o nosort 2>/dev/null
    while IFS= read -r line; do
        case $line in
            :files)
                compopt -o filenames 2>/dev/null
                mapfile -t COMPREPLY < <(compgen -f -- "$tail")
                ;;
            :directories)
                compopt -o filenames 2>/dev/null
                mapfile -t COMPREPLY < <(compgen -d -- "$tail")
                ;;
            *)
                line=${line%%$'\t'*}
                COMPREPLY+=("${line#"$head"}")
                ;;
        esac
    done < <("$program" complete -- "${words[@]}" 2>/dev/null)
}
complete -F _tlmctl tlmctl
)";

constexpr char kZsh[] = R"(#compdef tlmctl
# Completion of tlmctl for zsh.
_tlmctl() {
    local line
    local -a found
    for line in "${(@f)$(${~words[1]} complete -- "${(@)words[2,CURRENT]}" 2>/dev/null)}"; do
        case $line in
            '') ;;
            :files) compset -P '--*='; _files ;;
            :directories) compset -P '--*='; _files -/ ;;
            *$'\t'?*) found+=("${${line%%$'\t'*}//:/\\:}:${line#*$'\t'}") ;;
            *) found+=("${${line%%$'\t'*}//:/\\:}") ;;
        esac
    done
    (( $#found )) && _describe -V tlmctl found
}
if [[ $funcstack[1] == _tlmctl ]]; then
    _tlmctl "$@"
else
    compdef _tlmctl tlmctl
fi
)";

constexpr char kFish[] = R"(# Completion of tlmctl for fish.
function __tlmctl_candidates
    set -l words (commandline -opc)
    set -l current (commandline -ct)
    set -l head (string match -r -- '^--[^=]*=' "$current")
    set -l tail (string replace -- "$head" '' "$current")
    set -l program (string replace -r -- '^~' $HOME $words[1])
    command -q $program; or return
    for line in (command $program complete -- $words[2..-1] "$current" 2>/dev/null)
        switch $line
            case ':files'
                string replace -r -- '^' "$head" (__fish_complete_path $tail)
            case ':directories'
                string replace -r -- '^' "$head" (__fish_complete_directories $tail '')
            case '*'
                echo $line
        end
    end
end
complete -c tlmctl -f -a '(__tlmctl_candidates)'
)";

}  // namespace

void AddCompletion(Program& program) {
  static const std::map<std::string, const char*> kScripts{{"bash", kBash}, {"zsh", kZsh}, {"fish", kFish}};
  const auto shell = std::make_shared<std::string>();
  CLI::App& command = program.AddCommand(
      {.Name = "completion",
       .Description = "Print what makes a shell complete the words of tlmctl",
       .Examples = {{"completion bash >>~/.bashrc", "for bash, in each new shell"},
                    {"completion zsh >>~/.zshrc", "for zsh, behind compinit"},
                    {"completion fish >>~/.config/fish/config.fish", "for fish"}},
       .Operations = {},
       .Details =
           "The package brings it along. Candidates are asked for at each key: commands, options, files, and the\n"
           "jobs of the server if it answers within a second."},
      [shell](const Settings&) {
        std::cout << kScripts.at(*shell);
        return kGood;
      });
  command.add_option("SHELL", *shell, "For which shell")->required()->check(CLI::IsMember({"bash", "zsh", "fish"}));
}

}  // namespace tlm::ctl
