#!/usr/bin/env python3
"""Checks that the generated OpenAPI document covers the command catalog: the query
parameters of GET /network.cgi and the form fields of POST /network.cgi are the wire names
of registry/catalog.def, each once, in registration order; and the five resources are paths.

usage: check_openapi.py OPENAPI_JSON CATALOG_DEF
"""
import json
import re
import sys


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    with open(sys.argv[1], encoding="utf-8") as f:
        doc = json.load(f)
    with open(sys.argv[2], encoding="utf-8") as f:
        catalog = re.findall(r'^KORVEX_COMMAND\("([^"]*)"', f.read(), re.M)
    problems = []
    if doc.get("openapi") != "3.1.0":
        problems.append(f"openapi is {doc.get('openapi')!r}, not 3.1.0")
    paths = doc["paths"]
    want = {"/sdk.cgi", "/update.cgi", "/network.cgi", "/send.dat", "/get.dat"}
    if set(paths) != want:
        problems.append(f"paths {sorted(paths)} are not {sorted(want)}")
    network = paths.get("/network.cgi", {})
    query = [p["name"] for p in network.get("get", {}).get("parameters", []) if p["in"] == "query"]
    form = list(network.get("post", {}).get("requestBody", {}).get("content", {})
                .get("application/x-www-form-urlencoded", {}).get("schema", {}).get("properties", {}))
    examples = list(network.get("get", {}).get("responses", {}).get("200", {}).get("content", {})
                    .get("text/html;charset=utf-8", {}).get("examples", {}))
    for what, names in (("query parameters", query), ("form fields", form), ("answer examples", examples)):
        if names != catalog:
            missing = [n for n in catalog if n not in names]
            extra = [n for n in names if n not in catalog]
            problems.append(f"{what}: {len(names)} names; missing {missing[:5]}, unknown {extra[:5]}"
                            + ("" if missing or extra else ", order differs"))
    upload = paths.get("/update.cgi", {}).get("post", {}).get("requestBody", {}).get("content", {})
    if "multipart/form-data" not in upload:
        problems.append("update.cgi takes no multipart/form-data upload")
    covered = sum(1 for n in catalog if n in query)
    print(f"reference covers {covered}/{len(catalog)} commands")
    for p in problems:
        print("problem:", p)
    sys.exit(1 if problems or not catalog else 0)


if __name__ == "__main__":
    main()
