# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
"""Builds the programs that the benchmarks ask about: template-heavy C++ in as many units as are wanted.

    orv_programs.py FOLDER COMPILER UNITS [COPIES [VERSION]]

Prints the path of the program. VERSION is that of DWARF. Each unit instantiates containers and algorithms over types of its own,
so that units have little in common but the library's headers. COPIES links that many variants of every
unit, for programs of one kind that differ in size alone. What has been built is not built again.
"""

import concurrent.futures
import os
import pathlib
import subprocess
import sys

UNIT = r"""
#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <numeric>
#include <set>
#include <sstream>
#include <string>
#include <unordered_map>
#include <vector>
namespace unit_@N@ {
struct Key {
    int a; std::string b;
    bool operator<(Key const& o) const { return a != o.a ? a < o.a : b < o.b; }
    bool operator==(Key const& o) const { return a == o.a && b == o.b; }
};
struct Hash { std::size_t operator()(Key const& k) const { return std::hash<std::string>()(k.b) ^ k.a; } };
template <int I> struct Shape {
    virtual ~Shape() = default;
    virtual double area() const { return I * scale; }
    double scale = I;
    std::vector<Key> keys;
    std::map<Key, std::shared_ptr<Shape>> children;
    std::unordered_map<Key, std::set<std::string>, Hash> names;
    void add(Key const& key) {
        keys.push_back(key);
        children[key] = std::make_shared<Shape>();
        names[key].insert(key.b);
        std::sort(keys.begin(), keys.end());
        std::stable_sort(keys.begin(), keys.end(), [](Key const& x, Key const& y) { return y < x; });
    }
    double total() const {
        return std::accumulate(children.begin(), children.end(), area(),
                               [](double sum, auto const& entry) { return sum + entry.second->total(); });
    }
};
template <int I> double fill(std::string const& text) {
    Shape<I> shape;
    std::istringstream in(text);
    for (std::string word; in >> word;) shape.add({I, word});
    std::function<double(double)> scale = [&](double x) { return x * shape.scale + shape.keys.size(); };
    return scale(shape.total()) + fill<I - 1>(text);
}
template <> double fill<0>(std::string const& text) { return text.size(); }
}
double unit_@N@_run(std::string const& text) { return unit_@N@::fill<3>(text); }
"""


def one_unit(folder):
    """The source of a program of one unit."""
    source = folder / "template.cpp"
    source.write_text(UNIT.replace("@N@", "0") + "\nint main(int, char** argv) { return unit_0_run(argv[0]); }\n")
    return source


def build(folder, compiler, units, copies, version=4):
    folder = pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    kind = f"{pathlib.Path(compiler).name}{version}"
    program = folder / f"program-{kind}-{units}-{copies}"
    if program.exists():
        return program
    numbers = range(units * copies)
    main = "#include <string>\n" + "".join(f"double unit_{n}_run(std::string const&);\n" for n in numbers)
    main += "int main(int argc, char** argv) { std::string s(argv[0]); double sum = argc;\n"
    main += "".join(f"sum += unit_{n}_run(s);\n" for n in numbers) + "return static_cast<int>(sum); }\n"

    def compile_unit(name, text):
        source = folder / f"{name}.cpp"
        object_file = folder / f"{name}-{kind}.o"
        if not object_file.exists():
            source.write_text(text)
            subprocess.run([compiler, "-std=c++17", "-O2", f"-gdwarf-{version}", "-c", source, "-o", object_file], check=True)
        return object_file

    work = [(f"unit_{n}", UNIT.replace("@N@", str(n))) for n in numbers] + [(f"main_{len(numbers)}", main)]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        objects = list(pool.map(lambda job: compile_unit(*job), work))
    subprocess.run([compiler, *objects, "-o", program], check=True)
    return program


if __name__ == "__main__":
    print(build(*sys.argv[1:3], *(int(word) for word in sys.argv[3:])))
