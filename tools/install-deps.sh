#!/usr/bin/env bash
# Installs the Debian packages that warpforge needs to build, test and run; only the missing ones.
set -euo pipefail
# clang, its runtime and libomp build the fuzz harnesses (tools/fuzz.sh, CI); python3 writes the
# manual page; dpkg-dev lets cpack find the package's dependencies and man-db shows the page;
# xvfb and xauth give tools/render.py (VTK) a display; clang-format checks the layout (CI).
pkgs=(g++ cmake make pkg-config libgtest-dev libminizip-dev lib3mf-dev libzip-dev
      nlohmann-json3-dev libadmesh-dev admesh libcgal-dev libisal-dev python3 python3-vtk9 unzip
      clang libclang-rt-14-dev libomp-14-dev dpkg-dev man-db xvfb xauth clang-format)
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi
echo "Installing: ${missing[*]}"
sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
