# zsh -f type_and_tab.zsh FOLDER: types each line of standard input and a Tab into an interactive zsh that
# has the completions of FOLDER, and writes what the line has become.
zmodload zsh/zpty
export TERM=dumb
zpty inner zsh -f -i
zpty -w inner "PS1= PS2= RPS1=; unsetopt zle_bracketed_paste beep prompt_cr prompt_sp; stty -echo"
zpty -w inner "fpath=($1 \$fpath); autoload -Uz compinit; compinit -u -D"
zpty -w inner "show() { print -r -- \"<<\$BUFFER>>\"; BUFFER=; }; zle -N show"
zpty -w inner "bindkey '^I' complete-word; bindkey '^T' show"
zpty -w inner "print READY-\$((1 + 1))"
zpty -r inner text '*READY-2*'
while IFS= read -r line; do
    zpty -n -w inner "$line"$'\t\x14'
    zpty -r inner text '*<<*>>*'
    text=${text##*<<}
    print -r -- "${text%%>>*}"
done
zpty -w inner exit
while zpty -t inner; do zpty -r inner text; done
