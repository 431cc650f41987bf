# Completes command lines as an interactive zsh does: completion_test.zsh SCRIPT LINE, in a folder of its own. Prints the
# matches, one per line. Completion needs a terminal, so a second shell gets one.
zmodload zsh/zpty
zpty shell zsh -f -i
zpty -w shell "autoload -Uz compinit && compinit -D; source ${(q)1}
  compadd() {
    [[ \${@[1,(i)(-|--)]} == *-[OAD]\\ * ]] && { builtin compadd \"\$@\"; return }
    local -a hits
    builtin compadd -A hits \"\$@\"
    print -rl -- \$hits >>matches
    builtin compadd \"\$@\"
  }
  complete-line() { BUFFER=${(q)2}; CURSOR=\$#BUFFER; zle complete-word; print >>done; BUFFER=exit; zle accept-line }
  zle -N complete-line; bindkey '^T' complete-line"
zpty -w -n shell $'\x14'
# It ends by itself; what it shows has to be read for that.
while zpty -r shell shown; do :; done
[[ -e done ]] || exit 1
[[ ! -e matches ]] || cat matches
