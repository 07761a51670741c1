# Bash completion for vanta. The command's own help is the one list of its words and options.

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
      # The argument of an option: only a table's name can be known.
      [[ $previous == --table ]] || return
      words=$( "$program" tables 2>/dev/null | awk 'NR > 1 { print $1 }' )
   elif [[ $current == -* ]]; then
      words=$( awk '$1 ~ /^--/ { print $1 }' <<<"$help" )
   elif [[ $help == *$'\nCommands:\n'* ]]; then
      words=$( awk '/^Commands:/ { on = 1; next } NF == 0 { on = 0 } on { print $1 }' <<<"$help" )
   else
      mapfile -t COMPREPLY < <( compgen -f -- "$current" )
      return
   fi
   mapfile -t COMPREPLY < <( compgen -W "$words" -- "$current" )
}

complete -F _vanta vanta
