#!/bin/sh
# Uses VORN as other projects do: installs it, then builds and runs things outside the tree.
#
#     package.sh STEP [ARGUMENT]...
#
# Exits with 77 where a tool is missing: the test then counts as skipped. Needs in the environment:
# VORN_SOURCE_DIR, VORN_BUILD_DIR, VORN_WORK_DIR (emptied by the step `install`), CMAKE, and CC,
# CXX, FC, CFLAGS, CXXFLAGS, FFLAGS as the tree was built with.
set -eu

prefix=$VORN_WORK_DIR/moved/prefix

fail() {
    echo "package: $*" >&2
    exit 1
}

need() {
    command -v "$1" >/dev/null || {
        echo "package: skipped, $1 is not installed"
        exit 77
    }
}

# Fails unless the library of the soname $1 is installed, with no search path of its own.
check_library() {
    # A second kernel, for runs that are watched, has a folder of its own.
    library=$(find "$prefix" -name "$1" -type l -not -path "*/watched/*")
    [ -n "$library" ] || fail "no $1"
    readelf -d "$library" | grep -q "SONAME.*\[$1\]" || fail "wrong soname of $1"
    if readelf -d "$library" | grep -E 'R(UN)?PATH'; then
        fail "the installed $1 has a search path"
    fi
}

# The installed command and its modules find the installed libraries where the tree lies now, and
# share them: a job writes a file with the library that removes it when the job is interrupted.
check_command() {
    for file in "$prefix/bin/vorn" "$prefix"/lib/vorn/lib/lib*_in.so "$prefix"/lib/vorn/lib/lib*_out.so; do
        ldd "$file" | grep 'libVORN_' >"$VORN_WORK_DIR/libraries"
        while read -r name _ place _; do
            [ "$(readlink -f "$place")" = "$(readlink -f "$prefix/lib/$name")" ] ||
                fail "$file finds $name at $place"
        done <"$VORN_WORK_DIR/libraries"
        grep -q 'libVORN_segy.so.0' "$VORN_WORK_DIR/libraries" || fail "$file has no libVORN_segy"
    done
    cat >"$VORN_WORK_DIR/job.yaml" <<JOB
modules:
  - {name: shots, module: synthetic}
  - {name: write, module: segy_out, input: shots, file: shots.sgy}
  - {name: also, module: su_out, input: shots, file: shots.su}
JOB
    env -u VORN_HOME -u LD_LIBRARY_PATH "$prefix/bin/vorn" run "$VORN_WORK_DIR/job.yaml" -q ||
        fail "the installed command does not run a job"
    [ -s "$VORN_WORK_DIR/shots.sgy" ] && [ -s "$VORN_WORK_DIR/shots.su" ] || fail "no outputs"
}

# Installs through a staging directory, and moves the result: nothing may depend on its first place.
step_install() {
    rm -rf "$VORN_WORK_DIR"
    mkdir -p "$VORN_WORK_DIR/moved"
    DESTDIR=$VORN_WORK_DIR/stage $CMAKE --install "$VORN_BUILD_DIR" --prefix /opt/first-place
    mv "$VORN_WORK_DIR/stage/opt/first-place" "$prefix"

    check_library libVORN_kernel.so.0
    [ -n "$(find "$prefix" -name libVORN_module_test.so.0 -type l)" ] || fail "no library for tests"
    if [ -x "$prefix/bin/vorn" ]; then
        check_library libVORN_segy.so.0
        check_command
    fi
    for file in lib/cmake/VORN/VORNConfig.cmake lib/pkgconfig/vorn.pc include/vorn/knl.h \
        include/vorn/JobManager.h include/vorn/metadataprovider.h include/vorn/vorn_kit.h \
        include/vorn/vorn_kit.hpp share/vorn/fortran/vorn_knl.f90 share/vorn/fortran/vorn_kit.f90 \
        share/vorn/fortran/vorn_kit_entries.f90 include/vorn/vorn_stream.h \
        include/vorn/vorn_stream.hpp share/vorn/fortran/vorn_parts.f90 \
        share/vorn/fortran/vorn_stream.f90 include/vorn/vorn_module_test.h \
        share/vorn/fortran/vorn_module_test.f90 share/doc/vorn/README.md share/doc/vorn/vorn.md \
        share/doc/vorn/pictures/architecture.svg share/doc/vorn/manifest.schema.json \
        share/doc/vorn/modules/agc.md share/vorn/examples/module-c/amplify.c \
        share/vorn/examples/jobs/qc.yaml share/vorn/examples/scale/slurm.sh \
        share/vorn/templates/fortran77/gather.f; do
        [ -f "$prefix/$file" ] || fail "$file is not installed"
    done
    for header in BlockBytes BlockTable MOXKernel_families RecentNames SpareBlocks \
        TraceAttributeList wrapping; do
        [ -z "$(find "$prefix/include" -name $header.h)" ] || fail "$header.h, private, is installed"
    done
}

# Links of the installed pages lead to what is installed.
step_doc_links() {
    find "$prefix/share" -name '*.md' >"$VORN_WORK_DIR/pages"
    links=0
    while read -r page; do
        grep -o '](\([^)#:]*\)[)#]' "$page" | sed 's/^](//; s/[)#]$//' | sort -u >"$VORN_WORK_DIR/links" || true
        while read -r link; do
            [ -z "$link" ] || [ -e "$(dirname "$page")/$link" ] || fail "$page: there is no $link"
            links=$((links + 1))
        done <"$VORN_WORK_DIR/links"
    done <"$VORN_WORK_DIR/pages"
    [ "$(wc -l <"$VORN_WORK_DIR/pages")" -gt 40 ] && [ "$links" -gt 80 ] ||
        fail "only $links links in few pages"
}

# Whether the file $1 names the place $2. Not counted: where the compilers apply no prefix map, which
# are the Fortran sources in the texts of gfortran's run-time errors, and the lambdas that clang names
# as the type of a conversion in its debug information ("operator (lambda at FILE) &").
names_place() {
    strings -a "$1" | grep -F -e "$2" | grep -qvE "\.f90('|\$)|^operator \(lambda at "
}

step_no_build_paths() {
    for place in "$VORN_SOURCE_DIR" "$VORN_BUILD_DIR" /opt/first-place; do
        grep -rlF -e "$place" "$prefix" >"$VORN_WORK_DIR/suspects" || continue
        while read -r suspect; do
            if names_place "$suspect" "$place"; then
                fail "the installed file $suspect names $place"
            fi
        done <"$VORN_WORK_DIR/suspects"
    done
}

# Asserts that package_host, called with the arguments after the first, prints the lines of $1.
expect_output() {
    expected=$1
    shift
    printf '%s\n' "$expected" >"$VORN_WORK_DIR/expected.$$"
    VORN_HOME=$home "$package_host" "$@" >"$VORN_WORK_DIR/actual.$$" || {
        cat "$VORN_WORK_DIR/actual.$$"
        fail "the host failed"
    }
    diff "$VORN_WORK_DIR/expected.$$" "$VORN_WORK_DIR/actual.$$" || fail "unexpected output"
}

fed_traces="trace: 10 11 12 13
trace: 20 21 22 23
trace: 30 31 32 33
job finished"

step_host_cmake() {
    build=$VORN_WORK_DIR/host
    cp -R "$VORN_SOURCE_DIR/tests/packaging/host" "$VORN_WORK_DIR/host-source"
    $CMAKE -S "$VORN_WORK_DIR/host-source" -B "$build" -DCMAKE_PREFIX_PATH="$prefix"
    $CMAKE --build "$build"
    home=$build/vorn_home
    package_host=$build/package_host
    cmp "$home/lib/feed.yaml" "$VORN_SOURCE_DIR/tests/packaging/host/feed.yaml" ||
        fail "the manifest is not beside its library"
    expect_output "$fed_traces"
    check_exports "$home/lib/libfeed.so"

    # Installed modules join the kernel's own, where a host finds them with one VORN_HOME.
    $CMAKE --install "$build" --prefix "$prefix"
    home=$prefix/lib/vorn
    [ -f "$home/lib/feed.yaml" ] || fail "the manifest was not installed"
    expect_output "$fed_traces"
}

# An application with neither Qt nor VORN_HOME finds the modules of the library that it links.
step_job() {
    cp -R "$VORN_SOURCE_DIR/tests/packaging/job" "$VORN_WORK_DIR/job-source"
    $CMAKE -S "$VORN_WORK_DIR/job-source" -B "$VORN_WORK_DIR/job" -DCMAKE_PREFIX_PATH="$prefix"
    $CMAKE --build "$VORN_WORK_DIR/job"
    cd "$VORN_WORK_DIR/job"
    env -u VORN_HOME -u LD_LIBRARY_PATH ./package_job >actual || fail "the application failed"
    printf 'done\nshots: 0 in, 6 out\nwrite: 6 in, 0 out\n' | diff - actual ||
        fail "unexpected output"
    [ -s shots.sgy ] || fail "no output file"
}

step_host_pkgconfig() {
    need pkg-config
    export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
    sources=$VORN_SOURCE_DIR/tests/packaging/host
    home=$VORN_WORK_DIR/pkgconfig/vorn_home
    package_host=$VORN_WORK_DIR/pkgconfig/package_host
    mkdir -p "$home/lib"

    # Word splitting is meant: these are lists of flags.
    # shellcheck disable=SC2046,SC2086
    $CXX $CXXFLAGS -std=c++20 "$sources/host.cpp" -o "$package_host" \
        $(pkg-config --cflags --libs vorn) -Wl,-rpath,"$(pkg-config --variable=libdir vorn)"
    for module in feed collect; do
        # shellcheck disable=SC2046,SC2086
        $CC $CFLAGS -fPIC -shared -Wl,--no-undefined "$sources/$module.c" \
            -o "$home/lib/lib$module.so" $(pkg-config --cflags --libs vorn-module)
    done
    expect_output "$fed_traces"

    [ "$(pkg-config --variable=vorn_home vorn)/lib" -ef "$prefix/lib/vorn/lib" ] ||
        fail "vorn_home of vorn.pc is not the installed module tree"
    case $(pkg-config --cflags --libs vorn-module) in
        *Qt*) fail "vorn-module.pc asks for Qt" ;;
    esac
}

# Fails unless the module library $1 shows its entry points and nothing else. Those of the kit for
# Fortran are in every library, with the ones for parts.
check_exports() {
    exported=$(nm -D --defined-only "$1" | awk '{ print $3 }' | LC_ALL=C sort | tr '\n' ' ')
    case $exported in
        "postprocess_ preprocess_ process_ ") ;;
        "merge_ postprocess_ preprocess_ process_ save_ ") ;;
        *) fail "$1 exports: $exported" ;;
    esac
}

# A module tree in $project with the library $1, and with feed and collect.
make_home() {
    check_exports "$1"
    home=$project/home
    package_host=$VORN_WORK_DIR/host/package_host
    mkdir -p "$home/lib"
    cp "$VORN_WORK_DIR"/host/vorn_home/lib/*.so "$1" "$home/lib"
}

# A project of one module from the source $2, which enables the language $1 only; in $project.
write_project() {
    project=$VORN_WORK_DIR/$2-in-$1
    mkdir -p "$project"
    cp "$VORN_SOURCE_DIR/tests/packaging/modules/$2" "$project"
    cat >"$project/CMakeLists.txt" <<CMAKE
cmake_minimum_required(VERSION 3.25)
project(only LANGUAGES $1)
find_package(VORN REQUIRED COMPONENTS module)
vorn_add_module(NAME only SOURCES $2)
get_property(languages GLOBAL PROPERTY ENABLED_LANGUAGES)
list(REMOVE_ITEM languages NONE)
if(NOT languages STREQUAL "$1" OR TARGET VORN::kernel)
    message(FATAL_ERROR "more than asked for: \${languages}")
endif()
CMAKE
}

configure_project() {
    $CMAKE -S "$project" -B "$project/build" -DCMAKE_PREFIX_PATH="$prefix" \
        -DCMAKE_DISABLE_FIND_PACKAGE_Qt5=ON -DCMAKE_DISABLE_FIND_PACKAGE_Qt6=ON
}

# Modules need no other language than their own, and no Qt.
step_one_language() {
    write_project "$1" "$2"
    configure_project
    $CMAKE --build "$project/build"
    make_home "$project/build/vorn_home/lib/libonly.so"
    expect_output "trace: 20 22 24 26
trace: 40 42 44 46
trace: 60 62 64 66
job finished" libonly.so
}

# Modules with the kit and the parameters of a manifest, in the language $1 from the source $2. A
# changed manifest is read again; a field that it does not have fails the compilation.
step_kit() {
    write_project "$1" "$2"
    cp "$VORN_SOURCE_DIR/tests/packaging/modules/multiply.yaml" "$project"
    sed -i "s/SOURCES $2/SOURCES $2 MANIFEST multiply.yaml/" "$project/CMakeLists.txt"
    configure_project
    $CMAKE --build "$project/build"
    make_home "$project/build/vorn_home/lib/libonly.so"
    expect_output "trace: 30 33 36 39
trace: 60 63 66 69
trace: 90 93 96 99
job finished" libonly.so
    expect_output "trace: -5 -5.5 -6 -6.5
trace: -10 -10.5 -11 -11.5
trace: -15 -15.5 -16 -16.5
job finished" libonly.so factor=0.5 mode=negative

    sed -i 's/default: 3/default: 2/' "$project/multiply.yaml"
    $CMAKE --build "$project/build"
    make_home "$project/build/vorn_home/lib/libonly.so"
    expect_output "trace: 20 22 24 26
trace: 40 42 44 46
trace: 60 62 64 66
job finished" libonly.so

    sed -i 's/name: factor/name: fcator/' "$project/multiply.yaml"
    if $CMAKE --build "$project/build" >"$project/log" 2>&1; then
        fail "a field that the manifest does not have was compiled"
    fi
    grep -q "factor" "$project/log" || {
        cat "$project/log"
        fail "the compiler does not name the field"
    }
}

# Builds, tests and runs the module project in $project as its README says, and runs its job.
try_project() {
    PATH=$prefix/bin:$PATH
    export PATH
    unset VORN_HOME
    (
        cd "$project"
        CMAKE_PREFIX_PATH=$prefix $CMAKE -B build -DCMAKE_DISABLE_FIND_PACKAGE_Qt5=ON \
            -DCMAKE_DISABLE_FIND_PACKAGE_Qt6=ON
        $CMAKE --build build
        (cd build && ctest --output-on-failure --no-tests=error)
        vorn check job.yaml --allow-modules-from build/vorn_home/lib
        vorn run job.yaml --allow-modules-from build/vorn_home/lib
        [ -s out.su ] || [ ! -e tests/expected.su ] || fail "the job has written nothing"
    )
}

# A test program of the project in $project, where it has one, fails where it expects something else, and
# says what came.
try_spoiled_test_program() {
    for source in "$project"/tests/*_test.*; do
        [ -f "$source" ] || continue
        program=$(basename "$source" | sed 's/[.].*//')
        sed -i 's/4\.0/4.5/' "$source"
        $CMAKE --build "$project/build"
        if (cd "$project/build" && ctest --output-on-failure -R "^$program$") >"$project/log" 2>&1; then
            fail "$program expects another sample, and passes"
        fi
        grep -q "is 4; expected 4.5" "$project/log" || {
            cat "$project/log"
            fail "$program does not say what differs"
        }
    done
}

# The installed example in the folder $1, copied, whose module is $2; the rest are parameters with which the
# host gets the traces $expected of it.
step_example() {
    project=$VORN_WORK_DIR/$1
    module=$2
    shift 2
    cp -R "$prefix/share/vorn/examples/${project##*/}" "$project"
    try_project
    if "$prefix/bin/vorn" inspect "$module" >/dev/null 2>&1; then
        fail "the example $module has the name of a shipped module"
    fi
    try_spoiled_test_program
    [ "$#" -gt 0 ] || return 0
    make_home "$project/build/vorn_home/lib/lib$module.so"
    expect_output "$expected" "lib$module.so" "$@"
}

# The installed example of a host, with its modules.
step_example_host() {
    project=$VORN_WORK_DIR/example-host
    cp -R "$prefix/share/vorn/examples/host" "$project"
    $CMAKE -S "$project" -B "$project/build" -DCMAKE_PREFIX_PATH="$prefix"
    $CMAKE --build "$project/build"
    VORN_HOME=$project/build/vorn_home "$project/build/example_host" >"$project/log" 2>&1 || {
        cat "$project/log"
        fail "the example host failed"
    }
    grep -q "trace 3 at 100 m: amplitude 0.870 at 52 ms" "$project/log" || {
        cat "$project/log"
        fail "the example host computes something else"
    }
    "$project/build/example_jobfile" "$project/jobfile.yaml" >"$project/log" 2>&1 || {
        cat "$project/log"
        fail "the example with a job file failed"
    }
    grep -q "400 m: 0 0 0 0 8 0 0 0 0" "$project/log" || {
        cat "$project/log"
        fail "the example with a job file computes something else"
    }
}

# The archive that cpack makes holds what the installation does, and runs a job where it is unpacked.
step_archive() {
    need cpack
    (cd "$VORN_WORK_DIR" && cpack --config "$VORN_BUILD_DIR/CPackConfig.cmake" -G TGZ -B "$VORN_WORK_DIR/archive")
    mkdir "$VORN_WORK_DIR/unpacked"
    tar -xzf "$VORN_WORK_DIR"/archive/vorn-*.tar.gz -C "$VORN_WORK_DIR/unpacked" --strip-components=1
    for folder in bin include/vorn lib/cmake/VORN lib/vorn/lib share/doc/vorn share/vorn/examples; do
        # The step host_cmake installs its modules beside.
        (cd "$prefix/$folder" && find . | grep -v -e feed -e libcollect | LC_ALL=C sort) >"$VORN_WORK_DIR/installed"
        (cd "$VORN_WORK_DIR/unpacked/$folder" && find . | LC_ALL=C sort) >"$VORN_WORK_DIR/packed"
        diff "$VORN_WORK_DIR/installed" "$VORN_WORK_DIR/packed" || fail "the archive has another $folder"
    done
    env -u VORN_HOME "$VORN_WORK_DIR/unpacked/bin/vorn" run "$VORN_WORK_DIR/job.yaml" -q ||
        fail "the unpacked command does not run a job"
}

step_example_c() {
    expected="trace: -5 -5.5 -6 -6.5
trace: -10 -10.5 -11 -11.5
trace: -15 -15.5 -16 -16.5
job finished"
    step_example module-c amplify factor=-0.5
}

step_example_cpp() {
    expected="trace: 1.53846 1.69231 1.84615 2
trace: 1.73913 1.82609 1.91304 2
trace: 1.81818 1.87879 1.93939 2
job finished"
    step_example module-cpp normalise level=2
}

step_example_stream_c() {
    expected="trace: 30 32 34 36
trace: 30 31 32 33
job finished"
    step_example stream-c fold count=2
}

# It joins inputs, which the host of this test does not; StreamTest runs the same.
step_example_stream_cpp() {
    step_example stream-cpp average
}

step_example_stream_fortran() {
    expected="trace: -10 -10 -10 -10
trace: -10 -10 -10 -10
job finished"
    step_example stream-fortran difference scale=1
}

# A window of 4 ms holds a sample and its two neighbours.
step_example_fortran() {
    expected="trace: 0.952381 1 1 1.04
trace: 0.97561 1 1 1.02222
trace: 0.983607 1 1 1.01538
job finished"
    step_example module-fortran balance window=0.004
}

# Samples are at 0, 2, 4 and 6 ms.
step_example_fortran77() {
    expected="trace: 0 0.022 0.048 0.078
trace: 0 0.042 0.088 0.138
trace: 0 0.062 0.128 0.198
job finished"
    step_example module-fortran77 tpow power=1
}

# A job in which no trace reaches the module $name ends.
try_without_traces() {
    cat >empty.yaml <<JOB
modules:
  - {name: made, module: synthetic}
  - {name: none, module: select, input: made, where: fldr > 1000}
  - {name: tried, module: $name, input: none}
  - {name: seen, module: trace_qc, input: tried}
JOB
    vorn run empty.yaml --allow-modules-from build/vorn_home/lib --time-limit "30 s" >log 2>&1 || {
        cat log
        fail "a job without traces fails"
    }
}

# Whichever input of the module $name has more traces, the job ends with the reason.
try_unequal_inputs() {
    for inputs in "made, some" "some, made"; do
        cat >unequal.yaml <<JOB
modules:
  - {name: made, module: synthetic}
  - {name: some, module: select, input: made, where: fldr > 1}
  - {name: tried, module: $name, inputs: [$inputs]}
  - {name: write, module: su_out, input: tried, file: unequal.su}
JOB
        if vorn run unequal.yaml --allow-modules-from build/vorn_home/lib --time-limit "30 s" >log 2>&1; then
            fail "inputs of different lengths are joined"
        fi
        grep -q "one input has more traces than the other" log || {
            cat log
            fail "the failure does not say why"
        }
    done
}

# A new module in the language $1 of the kind $2, made, built, tested and run as its README says. Its
# test fails where the module computes something else.
step_new_module() {
    name=my_$(echo "$1_$2" | tr -c 'a-z0-9\n' _)
    project=$VORN_WORK_DIR/$name
    option=--$2
    [ "$2" != filter ] || option=
    (
        PATH=$prefix/bin:$PATH
        unset VORN_HOME
        # shellcheck disable=SC2086
        vorn new-module "$name" --language "$1" $option --into "$project"
    )
    try_project
    cd "$project"
    grep -q "$name" README.md || fail "the README does not name the module"
    if grep -r -e my_module -e MY_ . --include='*.*' --exclude-dir=build; then
        fail "a name of the template is left"
    fi

    case $2 in
        sink) return ;;
        gather) try_without_traces ;;
        two-inputs) try_unequal_inputs ;;
    esac
    # Byte 260 lies in the second sample of the first trace.
    printf '\100' | dd of=tests/expected.su bs=1 seek=247 conv=notrunc 2>/dev/null
    if (cd build && ctest) >log 2>&1; then
        fail "another result is expected, and the test passes"
    fi
}

# A module is installed to a directory of its own and packed, as the guide says.
step_publish() {
    project=$VORN_WORK_DIR/publish
    cp -R "$prefix/share/vorn/examples/module-c" "$project"
    cat >>"$project/CMakeLists.txt" <<CMAKE
set(CPACK_PACKAGE_NAME vorn-module-amplify)
set(CPACK_PACKAGE_VERSION 0.1.0)
set(CPACK_PACKAGE_CONTACT "me@example.org")
set(CPACK_DEBIAN_PACKAGE_DEPENDS "vorn")
include(CPack)
CMAKE
    configure_project
    $CMAKE --build "$project/build"
    $CMAKE --install "$project/build" --prefix "$project/own"
    (cd "$project/build" && cpack -G TGZ)
    mkdir "$project/unpacked"
    tar -xzf "$project"/build/vorn-module-amplify-0.1.0-*.tar.gz -C "$project/unpacked" --strip-components=1
    for place in own unpacked; do
        (
            unset VORN_HOME
            cd "$project"
            rm -f out.su
            "$prefix/bin/vorn" run job.yaml -q --allow-modules-from "$place/lib/vorn/lib"
            [ -s out.su ] || fail "the job has written nothing"
        )
        [ -f "$project/$place/lib/vorn/lib/amplify.yaml" ] || fail "no manifest in $place"
    done
}

# The guide for authors of modules, followed to the letter.
step_guide() {
    need python3
    python3 "$VORN_SOURCE_DIR/tests/packaging/follow_guide.py" --prefix "$prefix" \
        --work "$VORN_WORK_DIR/guide" --cmake "$CMAKE" --checker "$VORN_SOURCE_DIR/tests/docs"
}

# Names that would do harm.
step_new_module_refused() {
    PATH=$prefix/bin:$PATH
    unset VORN_HOME
    cd "$VORN_WORK_DIR"
    for name in agc Big 9lives 'with space' ../up ''; do
        if vorn new-module "$name" --into "refused" >log 2>&1; then
            fail "a module is named \"$name\""
        fi
        [ ! -e refused ] || fail "something is left of a module named \"$name\""
    done
    grep -q "cannot be the name of a module" log || fail "the refusal does not say why"
    project=$VORN_WORK_DIR/shipped
    mkdir -p "$project"
    cp "$VORN_SOURCE_DIR"/modules/gain/*.c "$VORN_SOURCE_DIR"/modules/gain/*.h \
        "$VORN_SOURCE_DIR"/modules/gain/*.yaml "$project"
    cat >"$project/CMakeLists.txt" <<CMAKE
cmake_minimum_required(VERSION 3.25)
project(shipped LANGUAGES C)
find_package(VORN REQUIRED COMPONENTS module)
vorn_add_module(NAME gain SOURCES gain.c gain_math.c MANIFEST gain.yaml)
CMAKE
    configure_project
    $CMAKE --build "$project/build"
    if $CMAKE --install "$project/build" --prefix "$prefix" >log 2>&1; then
        fail "a shipped module was replaced"
    fi
    grep -q "gain is a module that VORN ships" log || fail "the refusal does not say why"
}

# A source that the project cannot compile is refused by name.
step_language_missing() {
    write_project C twice.f90
    if configure_project >"$project/log" 2>&1; then
        fail "a Fortran source was accepted without Fortran"
    fi
    grep -q 'module "only" has Fortran sources' "$project/log" || {
        cat "$project/log"
        fail "the refusal does not say why"
    }
}

# A module made for a later kernel fails to load, with a message; the host goes on.
step_later_kernel() {
    write_project C later_kernel.c
    echo 'target_link_options(only PRIVATE LINKER:-z,undefs)' >>"$project/CMakeLists.txt"
    configure_project
    $CMAKE --build "$project/build"
    make_home "$project/build/vorn_home/lib/libonly.so"
    status=0
    VORN_HOME=$home "$package_host" libonly.so 2>"$project/log" || status=$?
    cat "$project/log"
    [ "$status" -eq 1 ] || fail "the host ended with $status"
    grep -q 'load error.*knl_ofALaterKernel' "$project/log" || fail "no message names the function"
}

step=$1
shift
"step_$step" "$@"
