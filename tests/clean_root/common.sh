# For the scripts of this folder, which run as root in a bare root (scripts/clean-root).
set -euo pipefail
trap 'echo "${BASH_SOURCE[0]##*/}:$LINENO: $BASH_COMMAND" >&2' ERR
version=$1-0kahost1
everything="libkahost1 libkahost-dev lib32kahost1 lib32kahost-dev libkacall1 libkacall-dev lib32kacall1 lib32kacall-dev kahost-tools kahost-doc"

say() { echo "   $*"; }
apt() { apt-get -y "$@" >/kahost/apt.log 2>&1 || { cat /kahost/apt.log >&2; false; }; }
# Packages come from one of our folders, old or new, and from the mirror.
packages_from() {
    echo "deb [trusted=yes] file:/kahost/$1 ./" >/etc/apt/sources.list.d/kahost.list
    apt update
}
versions() { dpkg-query -W -f '${Version}\n' $everything | sort -u; }
as_you() { su you -c "cd && $1"; }
