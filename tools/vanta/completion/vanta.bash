# Bash completion for vanta. The command's own help is the one list of its words and options.

# Types by their qualified names, or by their own where none begins so. Bash takes a colon for the end of a word: what stands before
# the last one is on the line already.
_vanta_types() {
   local line=${COMP_LINE:0:COMP_POINT} names
   local word=${line##*[[:space:]]}
   names=$( "$1" types 2>/dev/null ) || return
   mapfile -t COMPREPLY < <( compgen -W "$names" -- "$word" )
   (( ${#COMPREPLY[@]} )) || mapfile -t COMPREPLY < <( compgen -W "$( sed 's/.*:://' <<<"$names" )" -- "$word" )
   [[ $word == *:* && $COMP_WORDBREAKS == *:* ]] && COMPREPLY=( "${COMPREPLY[@]#"${word%"${word##*:}"}"}" )
}

_vanta() {
   local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} program=${COMP_WORDS[0]}
   local -a path=()
   local word help words
   for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
      [[ $word == -* ]] && break
      path+=( "$word" )
   done
   help=$( "$program" "${path[@]}" --help 2>/dev/null ) || return

   COMPREPLY=()
   if [[ $previous == --* && $help =~ [[:space:]]"$previous"\ [A-Z]+[[:space:]] ]]; then
      # The argument of an option: only a table's name and a directory can be known.
      [[ $previous == --schema ]] && mapfile -t COMPREPLY < <( compgen -d -- "$current" )
      [[ $previous == --table ]] || return
      words=$( "$program" tables 2>/dev/null | awk 'NR > 1 { print $1 }' )
   elif [[ $current == -* ]]; then
      words=$( awk '$1 ~ /^--/ { print $1 }' <<<"$help" )
   elif [[ $help == *$'\nCommands:\n'* ]]; then
      words=$( awk '/^Commands:/ { on = 1; next } NF == 0 { on = 0 } on { print $1 }' <<<"$help" )
   else
      [[ ${path[0]} == types && $current != */* ]] && _vanta_types "$program"
      (( ${#COMPREPLY[@]} )) || mapfile -t COMPREPLY < <( compgen -f -- "$current" )
      return
   fi
   mapfile -t COMPREPLY < <( compgen -W "$words" -- "$current" )
}

complete -F _vanta vanta
