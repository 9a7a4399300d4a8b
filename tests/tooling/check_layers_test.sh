#!/usr/bin/env bash
# scripts/check-layers on small made-up trees: a clean tree passes; an include or a link
# against the layer order fails and names the file and line.
# Usage: check_layers_test.sh CHECK_LAYERS
set -uo pipefail
check_layers=$1
scratch=$(mktemp -d /tmp/corvel-layers-XXXXXX)
trap 'rm -rf "$scratch"' EXIT
failures=0

# A tree with a header per layer and clean includes and link lines.
make_tree() {
    local root=$1 layer
    rm -rf "$root"
    for layer in platform media engine settings results scan selection removal app; do
        mkdir -p "$root/src/$layer"
        echo "#pragma once" >"$root/src/$layer/$layer.h"
        echo "add_library(corvel_$layer STATIC $layer.cpp)" >"$root/src/$layer/CMakeLists.txt"
    done
    mkdir -p "$root/cli" "$root/gui"
    echo "#pragma once" >"$root/cli/report.h"
    echo "#pragma once" >"$root/gui/window.h"
    printf '#include "scan.h"\n#include "results/results.h"\n#include <vector>\n' >"$root/src/scan/walk.cpp"
    printf '#include "platform/platform.h"\n#include "media/media.h"\n' >"$root/src/app/app.cpp"
    printf '#include "app/app.h"\n#include "report.h"\n' >"$root/cli/main.cpp"
    printf '#include "app/app.h"\n#include "window.h"\n' >"$root/gui/main.cpp"
    printf 'target_link_libraries(corvel_engine\n    PUBLIC corvel_media corvel_platform\n    PRIVATE ICU::uc)\n' \
        >"$root/src/engine/CMakeLists.txt"
}

# expect STATUS WANTED_OUTPUT NAME: runs the checker on the tree and compares.
expect() {
    local status=$1 wanted=$2 name=$3 output actual
    output=$("$check_layers" "$scratch/tree" 2>&1)
    actual=$?
    if [[ $actual -ne $status ]]; then
        echo "FAIL $name: exit $actual, wanted $status"$'\n'"$output"
        failures=$((failures + 1))
    elif [[ -n "$wanted" && "$output" != *"$wanted"* ]]; then
        echo "FAIL $name: output lacks '$wanted'"$'\n'"$output"
        failures=$((failures + 1))
    else
        echo "ok   $name"
    fi
}

make_tree "$scratch/tree"
expect 0 "" "clean tree"

make_tree "$scratch/tree"
printf '#include <string>\n\n#include "scan/scan.h"\n' >"$scratch/tree/src/platform/bad.cpp"
expect 1 'src/platform/bad.cpp:3: includes "scan/scan.h": platform may not use scan' "upward include"

make_tree "$scratch/tree"
printf '#include "results/results.h"\n' >"$scratch/tree/src/selection/sideways.h"
expect 1 "selection may not use results" "include of a layer beside it"

make_tree "$scratch/tree"
printf '#include "../removal/removal.h"\n' >"$scratch/tree/src/engine/relative.cpp"
expect 1 "engine may not use removal" "upward include by a relative path"

make_tree "$scratch/tree"
printf '#  include "app/app.h"\n' >"$scratch/tree/src/media/spaced.cpp"
expect 1 "media may not use app" "include written with spaces"

make_tree "$scratch/tree"
printf '#include "window.h"\n' >"$scratch/tree/cli/window_user.cpp"
cp "$scratch/tree/gui/window.h" "$scratch/tree/cli/window.h"
expect 0 "" "a header of the same name in its own folder"

make_tree "$scratch/tree"
printf '#include "../gui/window.h"\n' >"$scratch/tree/cli/face.cpp"
expect 1 "cli may not use gui" "one face including the other"

make_tree "$scratch/tree"
printf 'target_link_libraries(corvel_engine\n    PUBLIC corvel_media\n           corvel_settings)\n' \
    >"$scratch/tree/src/engine/CMakeLists.txt"
expect 1 "src/engine/CMakeLists.txt:3: links corvel_settings: engine may not use settings" "upward link"

make_tree "$scratch/tree"
printf 'target_link_libraries(corvel_scan\n    # corvel_app links this one, not the other way\n    PUBLIC corvel_results)\n' \
    >"$scratch/tree/src/scan/CMakeLists.txt"
expect 0 "" "a layer named in a comment"

"$check_layers" "$scratch/none" >/dev/null 2>&1
if [[ $? -ne 2 ]]; then
    echo "FAIL a folder without src is a usage error"
    failures=$((failures + 1))
fi

if ((failures > 0)); then
    echo "$failures case(s) failed"
    exit 1
fi
