# SPDX-License-Identifier: Apache-2.0
# Completion of vorn for bash. The tool itself knows what may stand where ("vorn complete").
_vorn() {
  local line word current=${COMP_WORDS[COMP_CWORD]}
  COMPREPLY=()
  # What bash took apart at '=' is written behind it.
  [ "$current" = "=" ] && current=""
  while IFS= read -r line; do
    word=${line%%$'\t'*}
    case $word in
      :files)
        compopt -o filenames
        while IFS= read -r word; do COMPREPLY+=("$word"); done < <(compgen -f -- "$current")
        ;;
      :directories)
        compopt -o filenames
        while IFS= read -r word; do COMPREPLY+=("$word"); done < <(compgen -d -- "$current")
        ;;
      *)
        COMPREPLY+=("$word")
        [[ $word == *= ]] && compopt -o nospace
        ;;
    esac
  done < <("${COMP_WORDS[0]}" complete -- "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
}
complete -F _vorn vorn
