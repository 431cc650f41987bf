#include "ctl/CompletionScript.h"
#include "ctl/DataFiles.h"
#include "ctl/Verbs.h"

#include <memory>

namespace ctl {

void AddCompletion(CCommandLine& program)
{
    const auto shell = std::make_shared<std::string>();
    CLI::App& verb = program.AddVerb(
        "completion", "Print a script that completes commands in your shell",
        "The script completes verbs, options, companies, kinds and settings. Installations for Linux bring it for "
        "bash, zsh and fish. For PowerShell, the last line of the examples goes into the profile.",
        "completion bash >~/.local/share/bash-completion/completions/amporactl\n"
        "completion fish >~/.config/fish/completions/amporactl.fish\n"
        "completion powershell | Out-String | Invoke-Expression",
        [shell, &program](const Console& console) {
            console.out << CompletionScript(program.Model(), *shell);
            return kExitSuccess;
        });
    verb.add_option("shell", *shell, "The shell")->required()->check(OneOf("shell", kShells));
}

} // namespace ctl
