#!/usr/bin/env python3
"""The constants of odd_fields.xml as a Python module: type-checked by mypy --strict, imported, and compared with dictionaries.

    generated_python_test.py MDMSG MYPY odd_fields.xml WORK_FOLDER
"""
import importlib.util
import keyword
import os
import pathlib
import subprocess
import sys
import types
import typing

USER = '''
import typing

import odd_fields

bid: odd_fields.Field[{bid_type}] = odd_fields.BID
name: str = odd_fields.BID
when: odd_fields.Field[odd_fields.DateTime] = odd_fields.x5F_X


class Info(typing.NamedTuple):
    id: int
    name: str
    type: str


odd_fields.check({{field: Info(field.id, field, field.type) for field in odd_fields.FIELDS}})
'''


class Info(typing.NamedTuple):
    id: int
    type: str


def expect(found, expected):
    if found != expected:
        raise SystemExit(f"found\n{found}\nand not\n{expected}")


def error_of(function, *arguments):
    try:
        function(*arguments)
    except ValueError as error:
        return str(error)
    return None


def main():
    mdmsg, mypy, dictionary, work = sys.argv[1:]
    work = pathlib.Path(work)
    work.mkdir(parents=True, exist_ok=True)
    module_file = work / "odd_fields.py"
    with module_file.open("w", encoding="utf-8") as out:
        subprocess.run([mdmsg, "dict", "generate", "--language", "python", dictionary], stdout=out, check=True)

    spec = importlib.util.spec_from_file_location("odd_fields", module_file)
    fields = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(fields)
    constants = {name: value for name, value in vars(fields).items() if isinstance(value, fields.Field)}
    expect(tuple(constants.values()), fields.FIELDS)
    expect([name for name in constants if keyword.iskeyword(name)], [])
    expect(set(keyword.kwlist) - set(fields.FIELDS), set())  # the dictionary has all keywords
    expect(fields.BID_x20_PRICE, "BID PRICE")
    expect(fields.xE8B2B7E580A4, "\u8cb7\u5024")
    expect(fields.a_x22_b_x5C_c_x3F3F2F, 'a"b\\c??/')
    expect((fields.BID.id, fields.BID.type, {"BID": 5}[fields.BID]), (146, "INT64", 5))
    shown = subprocess.run([mdmsg, "dict", "show", "--fingerprint", "--dictionary", dictionary], capture_output=True,
                           text=True, check=True).stdout
    expect(f"0x{fields.FINGERPRINT:016x}\n", shown)

    infos = {str(field): Info(field.id, field.type) for field in fields.FIELDS}
    infos["ANOTHER"] = Info(9, "RAW")
    expect(error_of(fields.check, infos), None)
    infos["class"] = Info(9, "RAW")
    del infos["BID PRICE"]
    start = "the dictionary does not match the fields of this program: "
    expect(error_of(fields.check, infos),
           f"{start}class: expected id {fields.class_.id} {fields.class_.type}, found id 9 RAW; "
           f"BID PRICE: expected id {fields.BID_x20_PRICE.id} FLOAT, found no field of this name")
    none = error_of(fields.check, {})
    expect((none.count("; "), none[-12:]), (10, f"and {len(fields.FIELDS) - 10} more"))
    sys.modules["md_message"] = types.SimpleNamespace(dictionary=lambda: infos)
    expect(error_of(fields.check), error_of(fields.check, infos))

    if not pathlib.Path(mypy).is_file():
        print("skipped: no mypy")
        return
    for bid_type, status in (("int", 0), ("str", 1)):
        (work / "user.py").write_text(USER.format(bid_type=bid_type), encoding="utf-8")
        run = subprocess.run([mypy, "--strict", "--cache-dir", os.devnull, "odd_fields.py", "user.py"], cwd=work,
                             capture_output=True, text=True, check=False)
        if run.returncode != status or ("user.py:6:" in run.stdout) != (status == 1):
            raise SystemExit(f"mypy ended with {run.returncode}:\n{run.stdout}{run.stderr}")


main()
