#!/usr/bin/env bash
# Runs the tests where they might differ: under a locale with a decimal comma, with the checking standard library, and
# under thread sanitizer; compiles every source by itself, warnings as errors; runs the history on a server and under
# attack; and looks at the page of a tune in a browser. Arguments: which of them (sources locale debug threads history
# report; default all).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/bootstrap.sh native
work=$PWD/build/more
mkdir -p "$work"

build() {
    cmake -S . -B "$work/$1" -G Ninja -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=0 "${@:2}" >/dev/null
    cmake --build "$work/$1"
}

# Tests whose files and expected texts hold no number with a decimal point, in German as written in Germany (1.234,5),
# streams included: there such a number in a file is refused, as it should be. The test of a comma in the program puts
# stored numbers into commas itself.
run_locale() {
    scripts/bootstrap.sh locale
    localedef -i de_DE -f UTF-8 "$work/de_DE.UTF-8" 2>/dev/null || [ -d "$work/de_DE.UTF-8" ]
    echo '#include <locale>
          namespace { const bool begun = (std::locale::global(std::locale("")), true); }' >"$work/begin_locale.cpp"
    c++ -shared -fPIC -o "$work/begin_locale.so" "$work/begin_locale.cpp"
    cmake --preset release -DKORVANE_TESTS=ON >/dev/null
    local -A filters=(
        [spectrum]='-NewSpectrum.SecondSpectrum*:CalibrantPeaks.W*:VerifySpectrum.Rehearsed*:DualGain.MostAbundant*'
        [abundance]='-*SearchTranscript*' [instrument_simulator]='*' [instrument_masstime]='*'
        [reliability]='Writers*' [apps]='Everywhere.ABaseFolder*')
    local programs=("${!filters[@]}")
    cmake --build --preset release --target "${programs[@]/#/test_}"
    for program in "${programs[@]}"; do
        LOCPATH=$work LC_ALL=de_DE.UTF-8 LD_PRELOAD=$work/begin_locale.so \
            "build/release/bin/test_$program" --gtest_filter="${filters[$program]}" --gtest_brief=1 |
            tee "$work/locale.log"
        grep -qE '^\[==========\] [1-9][0-9]* test' "$work/locale.log"
    done
}

# Containers of the debug library have another layout, so that GoogleTest is built with it too.
run_debug() {
    local flags=(-D_GLIBCXX_DEBUG -D_GLIBCXX_DEBUG_PEDANTIC)
    if [ ! -d /usr/src/googletest ]; then
        echo "SKIPPED: the sources of GoogleTest are missing (Debian package googletest)"
        return
    fi
    cmake -S /usr/src/googletest -B "$work/googletest" -G Ninja -DCMAKE_CXX_FLAGS="${flags[*]}" \
          -DCMAKE_INSTALL_PREFIX="$work/installed" >/dev/null
    cmake --build "$work/googletest" --target install >/dev/null
    build debug -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g1 ${flags[*]}" \
          -DCMAKE_PREFIX_PATH="$work/installed"
    ctest --test-dir "$work/debug" --no-tests=error --output-on-failure -j2 -E '^consumer$'
}

run_sources() {
    cmake --preset dev -DKORVANE_TESTS=OFF >/dev/null
    cmake --build --preset dev
}

run_threads() {
    build threads -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g1" -DKORVANE_SANITIZE=thread
    ctest --test-dir "$work/threads" --no-tests=error --output-on-failure -j2 -E '^consumer$'
}

# The page of a tune: valid HTML, without findings of axe, small, soon written; pictures of it to look at in build/more/report.
run_report() {
    scripts/bootstrap.sh report
    local folder=$work/report
    cmake --preset release -DKORVANE_TESTS=ON >/dev/null
    cmake --build --preset release --target korvane_program test_tune
    KORVANE_REPORT_MS=50 build/release/bin/test_tune --gtest_filter='Report.*' --gtest_brief=1
    rm -rf "$folder" && mkdir -p "$folder"
    cp tests/tune/report.html "$folder/report.html"
    # tidy knows no SVG and takes the lines of its texts for text of the page.
    sed 's/<svg.*<\/svg>//' "$folder/report.html" >"$folder/page.html"
    tidy -errors -quiet "$folder/page.html"
    for picture in "$folder"/*.svg; do [ ! -f "$picture" ] || xmllint --noout "$picture"; done

    local browser=(chromium --headless=new --no-sandbox --disable-gpu --user-data-dir="$folder/browser" --hide-scrollbars
                   --window-size=1280,3200)
    "${browser[@]}" --screenshot="$folder/light.png" "file://$folder/report.html" 2>/dev/null
    "${browser[@]}" --blink-settings=preferredColorScheme=0 --screenshot="$folder/dark.png" \
                    "file://$folder/report.html" 2>/dev/null
    "${browser[@]}" --no-pdf-header-footer --print-to-pdf="$folder/print.pdf" "file://$folder/report.html" 2>/dev/null
    if ! command -v npm >/dev/null; then
        echo "SKIPPED: npm is missing (Debian package npm)"
        return
    fi
    npm install --silent --prefix "$folder" axe-core@4 >/dev/null
    # The policy of the page forbids scripts: axe gets a copy without it, once in each colour scheme.
    {
        grep -v 'Content-Security-Policy' "$folder/report.html" | sed 's/<\/html>//'
        echo "<script>$(cat "$folder/node_modules/axe-core/axe.min.js")</script>"
        echo '<script>axe.run().then(found => { document.body.textContent = "AXE " + found.passes.length + " passes, " +
              found.violations.length + " violations " + found.violations.map(v => v.id + ": " + v.nodes.map(n => n.html)) })</script>'
    } >"$folder/axe.html"
    for scheme in 1 0; do
        "${browser[@]}" --blink-settings=preferredColorScheme=$scheme --virtual-time-budget=20000 --dump-dom \
                        "file://$folder/axe.html" 2>/dev/null | grep -o 'AXE .*' | tee "$folder/axe.txt"
        grep -q ' 0 violations' "$folder/axe.txt"
    done
}

# The history on a PostgreSQL server, which has to tell what one in a file tells; and the whole attack on one in a file,
# with promtool.
run_history() {
    scripts/bootstrap.sh history
    cmake --preset release -DKORVANE_TESTS=ON >/dev/null
    cmake --build --preset release --target korvane_program korvane_sqlite korvane_postgresql
    tests/reliability/history.sh build/release/bin/korvane tests/apps/mzqc/mzqc_schema.json
    rm -rf "$work/history"
    mkdir "$work/history"
    export KORVANE_BASE=$work/history/base PATH=$PWD/build/release/bin:$PATH
    korvane init "$KORVANE_BASE" >/dev/null
    cat >"$work/history/month" <<'E'
set -e
[ "$1" = file ] || export KORVANE_HISTORY="postgresql://$PGUSER:$PGPASSWORD@$PGHOST:$PGPORT/postgres"
scripts/month.sh
for command in "list -n 40" "show 15" "diff 14 15" "diff last-week"; do korvane history $command; done
korvane trend --guide 10 --record 22 || true
korvane trend height --csv
E
    sh "$work/history/month" file >"$work/history/file" 2>&1
    rm "$KORVANE_BASE"/TuneHistory.sqlite
    pg_virtualenv sh "$work/history/month" server >"$work/history/server" 2>&1
    diff "$work/history/file" <(grep -vE '^(Creating|Dropping) ' "$work/history/server")
    echo "a month in a file and on a server: the same $(wc -l <"$work/history/file") lines"
}

[ $# -gt 0 ] || set -- sources locale debug threads history report
for which in "$@"; do
    echo "== $which"
    "run_$which"
done
