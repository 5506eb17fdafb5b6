#!/usr/bin/python3
"""Writes zr_api/_native.py from the public C headers: every enumeration as
an IntEnum, every record as a ctypes Structure, every exported function with
its argument and result types. Run it whenever include/zr_api.h or
include/zr_sim.h changes; the package's tests fail while the bindings and the
headers disagree.

    python3 python/generate_bindings.py            # rewrite the module
    python3 python/generate_bindings.py --check    # exit 1 if it is stale
"""
import os
import re
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
HEADERS = [os.path.join(ROOT, "include", "zr_api.h"), os.path.join(ROOT, "include", "zr_sim.h")]
OUT = os.path.join(HERE, "zr_api", "_native.py")

SCALARS = {
    "int": "c_int", "int32_t": "c_int32", "uint32_t": "c_uint32", "int64_t": "c_int64",
    "uint64_t": "c_uint64", "int16_t": "c_int16", "uint16_t": "c_uint16", "uint8_t": "c_uint8",
    "float": "c_float", "double": "c_double", "bool": "c_bool", "char": "c_char", "void": "None",
}


def strip_comments(text):
    text = re.sub(r"/\*.*?\*/", " ", text, flags=re.S)
    return re.sub(r"//[^\n]*", " ", text)


def parse(texts):
    defines, enums, structs, functions = {}, [], [], []
    for text in texts:
        text = strip_comments(text)
        for name, value in re.findall(r"#define\s+(ZR_CAL_\w+)\s+(\d+)", text):
            defines[name] = int(value)
        for name, body in re.findall(r"typedef\s+ZR_ENUM\((\w+)\)\s*\{(.*?)\}\s*\w+\s*;", text, flags=re.S):
            members, value = [], -1
            for item in [i.strip() for i in body.split(",") if i.strip()]:
                if "=" in item:
                    key, expr = [p.strip() for p in item.split("=")]
                    value = int(expr, 0)
                else:
                    key, value = item, value + 1
                members.append((key, value))
            enums.append((name, members))
        for name, body in re.findall(r"typedef\s+struct\s+(\w+)\s*\{(.*?)\}\s*\w+\s*;", text, flags=re.S):
            fields = []
            for decl in [d.strip() for d in body.split(";") if d.strip()]:
                m = re.match(r"([\w\s]+?)\s+(\w+)((?:\[[^\]]+\])*)$", decl)
                if not m:
                    raise SystemExit("cannot read field %r of %s" % (decl, name))
                ctype, field, dims = m.group(1).strip(), m.group(2), re.findall(r"\[([^\]]+)\]", m.group(3))
                fields.append((field, ctype, [d.strip() for d in dims]))
            structs.append((name, fields))
        for ret, name, args in re.findall(r"ZR_EXPORT\s+([\w\s\*]+?)\s*\b(zr\w+)\s*\(([^)]*)\)\s*;", text, flags=re.S):
            functions.append((name, ret.strip(), [a.strip() for a in " ".join(args.split()).split(",")]))
    return defines, enums, structs, functions


def ctype_of(spelled, enum_names, struct_names):
    spelled = spelled.replace("const ", "").strip()
    stars = spelled.count("*")
    base = spelled.replace("*", "").strip()
    if stars == 1 and base == "char":
        return "c_char_p"
    if stars == 1 and base == "void":
        return "c_void_p"
    if base in SCALARS:
        inner = SCALARS[base]
    elif base in enum_names:
        inner = "c_int32"
    elif base in struct_names:
        inner = base
    else:
        raise SystemExit("unknown type %r" % spelled)
    for _ in range(stars):
        inner = "POINTER(%s)" % inner
    return inner


def argument_type(arg, enum_names, struct_names):
    # "const double* frequencies" -> the type part
    m = re.match(r"(.*?[\*\s])(\w+)$", arg)
    return ctype_of(m.group(1) if m else arg, enum_names, struct_names)


def generate():
    defines, enums, structs, functions = parse(open(h).read() for h in HEADERS)
    enum_names = {n for n, _ in enums}
    struct_names = {n for n, _ in structs}
    out = ['"""The C interface as ctypes sees it. Written by generate_bindings.py from',
           'include/zr_api.h and include/zr_sim.h; do not edit."""',
           "from ctypes import (POINTER, Structure, c_bool, c_char, c_char_p, c_double, c_float, c_int,",
           "                    c_int16, c_int32, c_int64, c_uint8, c_uint16, c_uint32, c_uint64, c_void_p)",
           "from enum import IntEnum", ""]
    for name, value in sorted(defines.items()):
        out.append("%s = %d" % (name, value))
    out.append("")
    for name, members in enums:
        out.append("")
        out.append("")
        out.append("class %s(IntEnum):" % name)
        for key, value in members:
            out.append("    %s = %d" % (key, value))
    for name, fields in structs:
        out.append("")
        out.append("")
        out.append("class %s(Structure):" % name)
        out.append("    _fields_ = [")
        for field, ctype, dims in fields:
            t = ctype_of(ctype, enum_names, struct_names)
            for d in reversed(dims):
                literal = re.fullmatch(r"0x[0-9a-fA-F]+|\d+", d)
                t = "(%s) * %s" % (t, d if literal else "(%s)" % d)
            out.append("        (%r, %s)," % (field, t))
        out.append("    ]")
    out += ["", "", "# name: (result type, argument types, or None for a variadic function)", "FUNCTIONS = {"]
    for name, ret, args in functions:
        restype = ctype_of(ret, enum_names, struct_names)
        if args == ["void"]:
            argtypes = "[]"
        elif "..." in args:
            argtypes = "None"
        else:
            argtypes = "[%s]" % ", ".join(argument_type(a, enum_names, struct_names) for a in args)
        out.append("    %r: (%s, %s)," % (name, restype, argtypes))
    out.append("}")
    return "\n".join(out) + "\n"


if __name__ == "__main__":
    text = generate()
    if "--check" in sys.argv:
        current = open(OUT).read() if os.path.exists(OUT) else ""
        sys.exit(0 if current == text else 1)
    with open(OUT, "w") as f:
        f.write(text)
    print("wrote", OUT)
