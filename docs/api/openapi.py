#!/usr/bin/env python3
"""Writes the OpenAPI 3.1 document of the gateway's web API from registry/commands.json.

usage: openapi.py COMMANDS_JSON VERSION OUTPUT_JSON

The five resources become paths; the 152 commands of network.cgi become its query
parameters (GET) and the fields of its URL-encoded body (POST), each described from the
metadata: what its value means and accepts, what it answers, which daemons it calls and
what it changes.
"""
import json
import sys

TEXT_HTML = "text/html;charset=utf-8"


def code(text):
    return f"`{text}`"


def accepts_schema(accepts):
    """JSON Schema keywords for a command's value (always text on the wire)."""
    schema = {"type": "string"}
    if not accepts:
        return schema
    if "maxLength" in accepts:
        schema["maxLength"] = accepts["maxLength"]
    if "minLength" in accepts:
        schema["minLength"] = accepts["minLength"]
    if "enum" in accepts and not accepts.get("caseInsensitive"):
        schema["enum"] = [str(v) for v in accepts["enum"]]
    if "lengths" in accepts:
        schema["minLength"] = min(accepts["lengths"])
        schema["maxLength"] = max(accepts["lengths"])
    if accepts.get("format") == "mac":
        schema["pattern"] = "^[0-9A-Fa-f]{1,2}(:[0-9A-Fa-f]{1,2}){5}$"
    return schema


def effects_text(command):
    effects = command["effects"]
    parts = []
    if effects["stores"]:
        parts.append("stores " + ", ".join(code(k) for k in effects["stores"]))
    if effects["commits"]:
        parts.append("commits nvram to flash")
    if effects["restarts"]:
        parts.append("restarts " + ", ".join(effects["restarts"]))
    if effects["reboots"]:
        parts.append("**reboots the gateway**")
    parts += effects.get("other", [])
    return "; ".join(parts) if parts else "nothing"


def calls_text(command):
    lines = []
    for call in command["calls"]:
        where = call["bus_name"] or "broadcast signal"
        timeout = f", {call['timeout_ms']} ms" if call["timeout_ms"] > 0 else ""
        lines.append(f"- {code(where)} {code(call['interface'] + '.' + call['member'])}"
                     f" ({call['argument']}{timeout})")
    for line in command.get("runs", []):
        lines.append(f"- runs {code(line)}")
    return "\n".join(lines) if lines else "- no daemon (answered by the module itself)"


def command_description(command):
    example = command["example"]
    return "\n\n".join([
        f"**{command['family']}.** {command['summary']}",
        f"**Value:** {command['value']}",
        f"**Answer:** {command['answer']} Outcome: {command['outcome']}",
        f"**Changes:** {effects_text(command)}.",
        "**Calls:**\n" + calls_text(command),
        f"**Example:** `{command['name']}={example['value']}` answers `{json.dumps(example['answer'])[1:-1]}`",
    ])


def network_parameters(commands):
    params = []
    for command in commands:
        params.append({
            "name": command["name"],
            "in": "query",
            "required": False,
            "allowEmptyValue": True,
            "description": command_description(command),
            "schema": accepts_schema(command.get("accepts")),
            "example": command["example"]["value"],
        })
    return params


def network_examples(commands):
    return {c["name"]: {"summary": f"{c['name']}={c['example']['value']}", "value": c["example"]["answer"]}
            for c in commands}


def text_response(description, examples=None, example=None):
    media = {"schema": {"type": "string"}}
    if examples:
        media["examples"] = examples
    elif example is not None:
        media["example"] = example
    return {"description": description, "content": {TEXT_HTML: media}}


def resource(resources, name):
    return next(r for r in resources if r["name"] == name)


def build(meta, version):
    commands = meta["commands"]
    resources = meta["resources"]
    network = resource(resources, "network.cgi")
    sdk = resource(resources, "sdk.cgi")
    send = resource(resources, "send.dat")
    get = resource(resources, "get.dat")
    update = resource(resources, "update.cgi")
    form_fields = {c["name"]: dict(accepts_schema(c.get("accepts")), description=c["summary"]) for c in commands}
    network_answer = text_response(network["answer"], examples=network_examples(commands))
    wrong_method = {"description": "Wrong method for this resource (the `Allow` header names the right ones)."}
    forbidden = {"description": "Refused: a browser sent the request for another site's page, or the host name is unknown."}
    json_arg = {"name": "json", "in": "query", "required": True, "description": sdk["argument_meaning"],
                "schema": {"type": "string"}, "example": '{"cmd":"getdevice","uid":256}'}
    json_form = {"application/x-www-form-urlencoded": {
        "schema": {"type": "object", "properties": {"json": {"type": "string"}}, "required": ["json"]},
        "example": {"json": '{"cmd":"getdevice","uid":256}'}}}
    upload_errors = {code_: {"description": text, "content": {"text/plain": {"schema": {"type": "string"}}}}
                     for code_, text in update["errors"].items()}

    def op(op_id, summary, description, responses, **extra):
        body = {"operationId": op_id, "summary": summary, "description": description, "tags": [extra.pop("tag")],
                "responses": dict(responses, **{"403": forbidden, "405": wrong_method})}
        body.update(extra)
        return body

    return {
        "openapi": "3.1.0",
        "info": {
            "title": "Korvex gateway web API",
            "version": version,
            "summary": "The five resources that mod_korvex serves on the gateway's Apache.",
            "description": meta["about"] + "\n\nEvery answer has status 200 unless said otherwise; the text is "
                           "HTML fragments (`<br>` line ends) as the gateway's own pages expect.",
            "license": {"name": "proprietary", "identifier": "LicenseRef-Korvex-proprietary"},
        },
        "servers": [{"url": "/", "description": "the gateway itself"}],
        # The module itself asks for no credentials; conf-available/korvex-auth.conf puts
        # the five resources behind HTTP Basic authentication where it is enabled.
        "security": [{}, {"korvexBasic": []}],
        "components": {"securitySchemes": {"korvexBasic": {
            "type": "http", "scheme": "basic",
            "description": "Only where the administrator enabled conf-available/korvex-auth.conf "
                           "(a2enconf korvex-auth)."}}},
        "tags": [{"name": "commands", "description": "network.cgi: the 152 named commands"},
                 {"name": "relays", "description": "JSON relays to the Z-Wave SDK and application daemons"},
                 {"name": "firmware", "description": "firmware upload"}],
        "paths": {
            "/network.cgi": {
                "get": op("runCommands", "Run commands (query)", network["summary"], {"200": network_answer},
                          tag="commands", parameters=network_parameters(commands)),
                "post": op("runCommandsPost", "Run commands (form body)",
                           network["summary"] + " The body is URL-unescaped as a whole before it is split.",
                           {"200": network_answer}, tag="commands",
                           requestBody={"required": False, "content": {"application/x-www-form-urlencoded": {
                               "schema": {"type": "object", "properties": form_fields}}}}),
            },
            "/sdk.cgi": {
                "get": op("sdkRelay", "Relay JSON to the Z-Wave SDK daemon", sdk["summary"],
                          {"200": text_response(sdk["answer"], example=sdk["example"]["answer"])},
                          tag="relays", parameters=[json_arg]),
                "post": op("sdkRelayPost", "Relay JSON to the Z-Wave SDK daemon (form body)", sdk["summary"],
                           {"200": text_response(sdk["answer"], example=sdk["example"]["answer"])},
                           tag="relays", requestBody={"required": True, "content": json_form}),
            },
            "/send.dat": {
                "post": op("sendDat", "Hand JSON to the application daemon", send["summary"],
                           {"200": text_response(send["answer"], example="")},
                           tag="relays", requestBody={"required": True, "content": json_form}),
            },
            "/get.dat": {
                "get": op("getDat", "Read the application daemon's data", get["summary"],
                          {"200": text_response(get["answer"], example='{"devices":[]}')}, tag="relays"),
            },
            "/update.cgi": {
                "post": op("uploadFirmware", "Upload a firmware image and start the updater", update["summary"],
                           dict({"200": text_response(update["answer"], example=update["example"]["answer"])},
                                **upload_errors),
                           tag="firmware",
                           requestBody={"required": True, "content": {"multipart/form-data": {
                               "schema": {"type": "object", "properties": {
                                   "file": {"type": "string", "contentMediaType": "application/octet-stream",
                                            "description": update["argument_meaning"]}},
                                   "required": ["file"]},
                               "encoding": {"file": {"contentType": "application/octet-stream"}}}}}),
            },
        },
    }


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    with open(sys.argv[1], encoding="utf-8") as f:
        meta = json.load(f)
    document = build(meta, sys.argv[2])
    with open(sys.argv[3] + ".tmp", "w", encoding="utf-8") as f:
        json.dump(document, f, indent=1, ensure_ascii=False)
        f.write("\n")
    import os
    os.replace(sys.argv[3] + ".tmp", sys.argv[3])


if __name__ == "__main__":
    main()
