#compdef diagctl
# Zsh completion for diagctl, which knows itself what can complete a word.

local -a candidates
candidates=("${(@f)$(${words[1]} complete "${(@)words[2,CURRENT]}" 2>/dev/null)}")
if [[ $candidates[1] == :files ]]; then
    _files
else
    candidates=("${(@)candidates//:/\\:}")
    candidates=("${(@)candidates/$'\t'/:}")
    _describe diagctl candidates
fi
