# What a guest's file system has beside its kernel's part. Sourced, not run; the caller has set "root" and the variables
# of its options.

# with_libraries PROGRAM INTO: copies a program and each library that it needs, and the loader.
#
# Files of the build keep their places to each other (bin/ and lib/ in /corvane), as the program looks for its plug-in
# from its own place; everything else goes where it stands here.
with_libraries() {
  local program=$1 into=$2 library
  mkdir -p "$into/corvane/bin" "$into/corvane/lib"
  cp "$program" "$into/corvane/bin/"
  # "name => path (address)", or "path (address)" for the loader.
  ldd "$program" | sed -n 's/^\t\(.* => \)\{0,1\}\(\/[^ ]*\) .*/\2/p' | while read -r library; do
    case $(realpath -m "$library") in
      "$build"/*) cp "$library" "$into/corvane/lib/" ;;
      *) mkdir -p "$into/$(dirname "$library")" && cp -L "$library" "$into/$library" ;;
    esac
  done
}

# The plug-in is loaded by name at run time, so no list of libraries has it.
add_corvane() {
  local into=$1
  [ -x "$build/bin/corvane" ] || return 0
  with_libraries "$build/bin/corvane" "$into"
  cp -r "$build/lib/corvane" "$into/corvane/lib/"
}

# make_payload INTO [COMMAND...]
make_payload() {
  local into=$1 file variable value
  shift
  mkdir -p "$into/guest" "$into/root"
  cp "$root/scripts/guest/init" "$into/guest/init"
  chmod 755 "$into/guest/init"
  add_corvane "$into"
  for file in "${programs[@]}"; do with_libraries "$file" "$into"; done
  for file in "${files[@]}"; do cp -r "$file" "$into/root/"; done
  printf '%s\n' virtio_pci virtio_console crct10dif_generic t10-pi sd_mod sg nvme >"$into/guest/modules"
  : >"$into/guest/awaited"
  if [ -n "$scsi" ]; then
    echo "scsi_debug $scsi" >>"$into/guest/modules"
    echo '/dev/sg* 1' >>"$into/guest/awaited"
  fi
  [ "${#namespaces[@]}" -eq 0 ] || echo "/dev/ng* ${#namespaces[@]}" >>"$into/guest/awaited"
  {
    for variable in "${variables[@]}"; do
      value=${variable#*=}
      echo "export ${variable%%=*}=${value@Q}"
    done
    if [ -n "$script" ]; then
      echo "exec sh /guest/script"
      cp "$script" "$into/guest/script"
    else
      # The guest's shell understands the same quotes.
      echo "exec ${*@Q}"
    fi
  } >"$into/guest/command"
}
