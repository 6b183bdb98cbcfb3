#!/usr/bin/env bash
# Makes the packages of a build tree as it stands, unpacks them, and uses what is in them.
#   package_test.sh BUILD_DIRECTORY
# Status 77: it cannot be tested here.
set -euo pipefail
build=$(realpath "${1:?usage: package_test.sh BUILD_DIRECTORY}")
tests=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

for program in cpack dpkg-deb tar; do
    command -v "$program" >/dev/null || {
        echo "skipped: $program is missing"
        exit 77
    }
done

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
# The directories of a package take after the mask of whoever makes it.
umask 022

fail() {
    echo "FAILED $*"
    exit 1
}

# expect NAME WANTED ACTUAL
expect() {
    [[ $3 == *"$2"* ]] || fail "$1: expected $2, actual $3"
}

# With the generator of make, cpack would first bring the build up to date.
make_package() {
    (cd "$build" && cpack -G "$1" -B "$folder/$1" -D CPACK_CMAKE_GENERATOR=Ninja) \
        >"$folder/log" 2>&1 || fail "cpack -G $1: $(<"$folder/log")"
}

make_package DEB
make_package TGZ
package=$(echo "$folder"/DEB/dovrelscript_*.deb)
expect "the package's name" dovrelscript "$(dpkg-deb -f "$package" Package)"
expect "the maintainer" "The dovrelscript maintainers <maintainers@example.org>" \
    "$(dpkg-deb -f "$package" Maintainer)"
expect "the dependencies" libc6 "$(dpkg-deb -f "$package" Depends)"
[[ -n $(dpkg-deb -f "$package" Description) ]] || fail "the package has no description"

# The library has two packages of its own, and the three go together.
if [[ -e $build/src/embedding/libdovrelscript.so ]]; then
    shared=$(echo "$folder"/DEB/libdovrelscript[0-9]*.deb)
    development=$(echo "$folder"/DEB/libdovrelscript-dev_*.deb)
    expect "the library's dependencies" libstdc++6 "$(dpkg-deb -f "$shared" Depends)"
    expect "the -dev package's dependencies" \
        "$(dpkg-deb -f "$shared" Package) (= $(dpkg-deb -f "$package" Version))" \
        "$(dpkg-deb -f "$development" Depends)"
    dpkg-deb -x "$shared" "$folder/library"
    dpkg-deb -x "$development" "$folder/library"
    for file in libdovrelscript.{a,so} pkgconfig/dovrelscript{,-c}.pc \
        cmake/dovrelscript/dovrelscript-config{,-version}.cmake; do
        [[ -f $(echo "$folder"/library/usr/lib*/"$file") ]] || fail "no $file in the -dev package"
    done
    for file in dovrel.h dovrel_c.h; do
        [[ -f $folder/library/usr/include/dovrel/$file ]] || fail "no $file in the -dev package"
    done
fi

root=$folder/root
documents=$root/usr/share/doc/dovrelscript
dpkg-deb -x "$package" "$root"
companion=()
if [[ -x $build/dovrel ]]; then
    companion=(bin/dovrel share/man/man1/dovrel.1.gz share/bash-completion/completions/dovrel
        share/zsh/{site-functions,vendor-completions}/_dovrel
        share/fish/vendor_completions.d/dovrel.fish)
fi
for file in bin/dovrelscript share/man/man1/dovrelscript.1.gz "${companion[@]}" \
    share/doc/dovrelscript/{README.md,CHANGELOG.md,docs/command_line.md,examples/invoice.dv} \
    share/doc/dovrelscript/{copyright,changelog.gz} \
    share/doc/dovrelscript/editors/vim/syntax/dovrelscript.vim \
    share/doc/dovrelscript/editors/vscode/{package.json,syntaxes/dovrelscript.tmLanguage.json} \
    share/doc/dovrelscript/editors/vscode/{extension.js,snippets.json,icon.png} \
    share/doc/dovrelscript/editors/emacs/dovrelscript-mode.el \
    share/vim/vimfiles/{ftdetect,syntax,ftplugin,indent}/dovrelscript.vim \
    share/vim/vimfiles/compiler/dovrel.vim; do
    [[ -f $root/usr/$file ]] || fail "no /usr/$file in the package"
done
expect "the changelog" "dovrelscript ($(dpkg-deb -f "$package" Version))" \
    "$(zcat "$documents/changelog.gz" | head -n 1)"
# The first page is for those who have no source tree.
if grep -nE '\./tools|cmake' "$documents/README.md"; then
    fail "the installed first page names programs of the source tree"
fi
closed=$(find "$root/usr" ! -perm -a+r -o -type d ! -perm -a+x)
[[ -z $closed ]] || fail "closed to other users: $closed"
left=$(find "$root" -type f -path '*/doc/*' -name '*.1')
[[ -z $left ]] || fail "the manual page lies among the documents: $left"

tar -xzf "$folder"/TGZ/dovrelscript-*.tar.gz -C "$folder/TGZ" --strip-components=1
for program in "$root/usr/bin/dovrelscript" "$folder/TGZ/bin/dovrelscript"; do
    "$program" "$documents/examples/invoice.dv" >"$folder/out" ||
        fail "an example fails"
    diff "$tests/examples/invoice.out" "$folder/out" || fail "an example prints something else"
done

# Links that lead somewhere in the source tree may lead nowhere from here.
find "$documents" -name '*.md' -print0 |
    xargs -0 "$tests/run_documents.py" --program "$root/usr/bin/dovrelscript" >"$folder/out" ||
    fail "the installed documents: $(<"$folder/out")"

if [[ -x $build/dovrel ]]; then
    expect "the packed dovrel" "6 x" "$("$root/usr/bin/dovrel" run -e 'print(2 * 3, args[1])' x)"
    expect "the packed dovrel knows its version" dovrel "$("$folder/TGZ/bin/dovrel" --version)"
fi

if command -v groff >/dev/null; then
    warnings=$(for page in "$root"/usr/share/man/man1/*; do
        zcat -f "$page" | groff -man -ww -z -Tutf8 2>&1
    done)
    [[ -z $warnings ]] || fail "the manual page: $warnings"
else
    echo "the manual page is not checked: groff is missing"
fi

if command -v vim >/dev/null && [[ $(vim --version) == *+syntax* ]]; then
    # Its own runtime files and the package's, and nothing of this machine.
    vim -Nes -u NONE -i NONE --cmd "set runtimepath=$root/usr/share/vim/vimfiles,\$VIMRUNTIME" \
        -c 'filetype on | syntax on' -c "edit $documents/examples/invoice.dv" \
        -c "call writefile([&filetype . ' ' . get(b:, 'current_syntax', 'none')], '$folder/vim')" \
        -c 'qall!' </dev/null || fail "vim fails"
    expect "the language that vim finds" "dovrelscript dovrelscript" "$(<"$folder/vim")"
else
    echo "the files for Vim are not checked: vim is missing, or knows no syntax files"
fi

if command -v lintian >/dev/null; then
    lintian --allow-root --fail-on error "$package" >"$folder/out" 2>&1 ||
        fail "lintian: $(<"$folder/out")"
else
    echo "Debian's rules are not checked: lintian is missing"
fi
echo "all passed"
