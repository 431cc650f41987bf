#!/usr/bin/env python3
"""Checks the manifests of winget against the package: winget_test.py FOLDER PACKAGE PRODUCT_CODE

The shape is that of the public schemas of version 1.6.0, of which only the fields that these manifests use are known
here: name, whether it is required, and the form of its value.
"""
import hashlib
import os
import re
import sys

import yaml

COMMON = {"PackageIdentifier": r"[^.\s\\/:*?\"<>|]{1,32}(\.[^.\s\\/:*?\"<>|]{1,32}){1,7}", "PackageVersion": r"[^\\/:*?\"<>|]{1,128}",
          "ManifestVersion": r"1\.6\.0"}
CODE = r"\{[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\}"
SHAPES = {  # by the end of the file's name: required fields, then the others
    "AmporaSrv": ({**COMMON, "DefaultLocale": r"[a-z]{2}-[A-Z]{2}", "ManifestType": "version"}, {}),
    "locale.en-US": ({**COMMON, "PackageLocale": "en-US", "Publisher": r".{2,256}", "PackageName": r".{2,256}",
                      "License": r".{3,512}", "ShortDescription": r".{3,256}", "ManifestType": "defaultLocale"},
                     {"Description": r"(?s).{3,10000}", "Tags": None}),
    "installer": ({**COMMON, "Installers": None, "ManifestType": "installer"},
                  {"Platform": None, "MinimumOSVersion": r"\d+(\.\d+){0,3}", "InstallerType": "msi", "Scope": "machine|user",
                   "UpgradeBehavior": "install|uninstallPrevious|deny", "ReleaseDate": r"\d{4}-\d\d-\d\d", "Commands": None,
                   "ElevationRequirement": "elevationRequired|elevationProhibited|elevatesSelf",
                   "AppsAndFeaturesEntries": None}),
}


def faults_of(name, manifest):
    required, optional = SHAPES[name]
    known = {**required, **optional}
    yield from (f"{field} is missing" for field in required if field not in manifest)
    for field, value in manifest.items():
        if field not in known:
            yield f"{field} is not known"
        elif known[field] and not re.fullmatch(known[field], str(value)):
            yield f"{field} is '{value}'"
        elif not known[field] and not (isinstance(value, list) and value):
            yield f"{field} is no list"


def main():
    folder, package, product_code = sys.argv[1:]
    manifests = {}
    for name in os.listdir(folder):
        with open(os.path.join(folder, name), encoding="utf-8") as source:
            manifests[name.removesuffix(".yaml").removeprefix("Halvex.").removeprefix("AmporaSrv.")] = yaml.safe_load(source)
    faults = [f"{name}: {fault}" for name in SHAPES for fault in faults_of(name, manifests[name])]
    if len({(manifest["PackageIdentifier"], manifest["PackageVersion"]) for manifest in manifests.values()}) != 1:
        faults.append("the manifests are of several packages")
    with open(package, "rb") as source:
        digest = hashlib.sha256(source.read()).hexdigest().upper()
    expected = {"Architecture": "x64", "InstallerSha256": digest, "ProductCode": product_code}
    installer = manifests["installer"]["Installers"][0]
    faults += [f"{field} is {installer.get(field)}" for field, value in expected.items() if installer.get(field) != value]
    if not re.fullmatch(r"https://\S+/" + re.escape(os.path.basename(package)), installer["InstallerUrl"]):
        faults.append(f"InstallerUrl is {installer['InstallerUrl']}")
    codes = manifests["installer"]["AppsAndFeaturesEntries"][0]
    faults += [f"{field} is {codes[field]}" for field in ("ProductCode", "UpgradeCode") if not re.fullmatch(CODE, codes[field])]
    return "\n".join(faults) or 0


sys.exit(main())
