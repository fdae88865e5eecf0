#!/usr/bin/env python3
"""Makes the HTML reference self-contained: replaces the one <script src=...redoc.standalone.js>
tag that the renderer writes with the same bundle, inline, from the installed redoc package.

usage: inline_redoc.py HTML BUNDLE
"""
import re
import sys


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    html_path, bundle_path = sys.argv[1], sys.argv[2]
    with open(html_path, encoding="utf-8") as f:
        html = f.read()
    with open(bundle_path, encoding="utf-8") as f:
        bundle = f.read()
    tags = re.findall(r'<script src="[^"]*/redoc\.standalone\.js"></script>', html)
    if len(tags) != 1:
        sys.exit(f"inline_redoc: expected one redoc script tag in {html_path}, found {len(tags)}")
    # A closing tag inside the bundle would end the inline script early.
    bundle = bundle.replace("</script", "<\\/script")
    html = html.replace(tags[0], "<script>" + bundle + "</script>")
    remote = re.findall(r'<(?:script|link|img)[^>]+(?:src|href)="(?:https?:)?//[^"]*"', html)
    if remote:
        sys.exit(f"inline_redoc: {html_path} still loads {remote[0]}")
    with open(html_path, "w", encoding="utf-8") as f:
        f.write(html)


if __name__ == "__main__":
    main()
