# Prints what is wrong with an SBOM in SPDX 2.3, and nothing when all is well. $texts is the list of
# the packages whose licence texts lie beside it.

# One condition, whatever else the input may be than it expects.
def demand($what; condition): if (try condition catch false) == true then empty else $what end;

def isLicence: [splits(" (AND|OR|WITH) ")] | all(IN("Apache-2.0", "BSD-3-Clause",
  "GCC-exception-3.1", "GPL-3.0-or-later", "LLVM-exception", "MIT", "NOASSERTION", "NONE"));

def isPackage: (keys - ["SPDXID", "checksums", "comment", "copyrightText", "downloadLocation",
    "externalRefs", "filesAnalyzed", "licenseComments", "licenseConcluded", "licenseDeclared",
    "name", "packageFileName", "sourceInfo", "versionInfo"] == [])
  and (.name | length > 0) and (.downloadLocation | length > 0) and .filesAnalyzed == false
  and .versionInfo != "" and (.copyrightText | length > 0) and (.licenseConcluded | isLicence)
  and (.licenseDeclared | isLicence)
  and (.checksums // [] | all(.algorithm == "SHA256" and (.checksumValue | test("^[0-9a-f]{64}$"))))
  and (.externalRefs // [] | all(.referenceLocator | test("^(pkg:|cpe:2.3:a:)[^ ]+[0-9][^ ]*$")));

. as $document
| (.packages | map({key: .SPDXID, value: .}) | from_entries) as $packages
| def targets($type): [$document.relationships[] | select(.relationshipType == $type)
    | .relatedSpdxElement];

demand("a value is null"; [.. | nulls] == []),
demand("what it is"; .spdxVersion == "SPDX-2.3" and .dataLicense == "CC0-1.0"
  and .SPDXID == "SPDXRef-DOCUMENT" and (.name | length > 0)
  and (.documentNamespace | test("^https://[^ #]+$"))),
demand("when and by what it was made"; .creationInfo
  | (.created | test("^[0-9]{4}(-[0-9]{2}){2}T[0-9]{2}(:[0-9]{2}){2}Z$"))
  and (.creators | length > 0 and all(test("^Tool: .")))),
demand("an SPDXID that is none, or not unique";
  ($packages | length) == (.packages | length) and ($packages | has("SPDXRef-DOCUMENT") | not)
  and ($packages | keys | all(test("^SPDXRef-[A-Za-z0-9.-]+$")))),
(.packages[] | demand("package \(.SPDXID)"; isPackage)),
(.relationships[] | demand("relation \(.)";
  (.relationshipType | IN("DESCRIBES", "STATIC_LINK", "DYNAMIC_LINK", "BUILD_TOOL_OF"))
  and all(.spdxElementId, .relatedSpdxElement; . == "SPDXRef-DOCUMENT" or $packages[.] != null))),
demand("nothing is described, linked or built with";
  all("DESCRIBES", "STATIC_LINK", "DYNAMIC_LINK", "BUILD_TOOL_OF"; targets(.) | length > 0)),
# What ships, or is a part of it.
(targets("DESCRIBES", "STATIC_LINK") | unique[] | $packages[.]
  | demand("no version: \(.SPDXID)"; .versionInfo | length > 0)),
(targets("STATIC_LINK") | unique[] | $packages[.].name
  | demand("no licence text: \(.)"; IN($texts[])))
