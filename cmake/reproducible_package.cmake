# cpack runs this before it packs and once more afterwards, so that the same sources always give the
# same package. All times in the package are those of the last commit, or of the changelog if there is
# no repository.
if("$ENV{SOURCE_DATE_EPOCH}" STREQUAL "")
  execute_process(
    COMMAND sh -c "git log -1 --format=%ct 2>/dev/null ||
      date -d \"$(sed -n 's/^ -- .*>  //p' packaging/changelog)\" +%s"
    WORKING_DIRECTORY ${CMAKE_CURRENT_LIST_DIR}/..
    OUTPUT_VARIABLE seconds OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  set(ENV{SOURCE_DATE_EPOCH} ${seconds})
endif()

# The umask decides the modes of the folders that cpack makes, and the file system decides how large
# they are, which counts in Installed-Size. So the finished package is packed again. Its size becomes
# what dpkg-gencontrol would write: each file in whole KiB, and 1 KiB for everything else.
foreach(package ${CPACK_PACKAGE_FILES})
  execute_process(COMMAND sh -eu -c [=[
      umask 022
      root=$(mktemp -d)
      trap 'rm -rf "$root"' EXIT
      dpkg-deb -R "$1" "$root/package"
      # cpack writes scripts that call ldconfig. Debian wants a trigger instead.
      if grep -sq ldconfig "$root/package/DEBIAN/postinst"; then
        rm "$root/package/DEBIAN/postinst" "$root/package/DEBIAN/postrm"
        echo "activate-noawait ldconfig" >"$root/package/DEBIAN/triggers"
      fi
      find "$root/package" -type d -exec chmod 755 {} +
      chmod 644 "$root"/package/DEBIAN/*
      size=$(find "$root/package" -mindepth 1 -path "$root/package/DEBIAN" -prune -o -printf '%y %s\n' |
        awk '{ kib += $1 == "f" ? int(($2 + 1023) / 1024) : 1 } END { print kib }')
      sed -i "s/^Installed-Size: .*/Installed-Size: $size/" "$root/package/DEBIAN/control"
      dpkg-deb --root-owner-group -Zgzip -b "$root/package" "$1" >/dev/null
    ]=] sh ${package} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
