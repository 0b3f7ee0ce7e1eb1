# Makes the SBOM of an archive, in SPDX 2.3, of what scripts/release has found out:
#   name of the archive; version and commit of the product; created, the time of the commit;
#   products, the libraries and the programs: file, sha256, needs (the libraries of the system);
#   parts, what becomes part of them, or of the one named in only, and tools, what makes them: name,
#   version, licence, purl, and of what is built from source the file, its sha256 and how in source.

def id: "SPDXRef-" + (split("/") | last | gsub("[^A-Za-z0-9.]+"; "-"));

def package: {
  SPDXID: (.name | id),
  name,
  downloadLocation: "NOASSERTION",
  filesAnalyzed: false,
  licenseDeclared: .licenseConcluded,
  copyrightText: "NOASSERTION"
} + .;

def fromFile($file; $sha256): {
  packageFileName: $file,
  checksums: [{algorithm: "SHA256", checksumValue: $sha256}]
};

def reference($category; $type; $locator): {
  referenceCategory: $category, referenceType: $type, referenceLocator: $locator
};

# A release in the form that lists of vulnerabilities go by.
def cpe: (.version / "-")[0] as $release
  | reference("SECURITY"; "cpe23Type";
      "cpe:2.3:a:\(.name):\(.name):\($release):*:*:*:*:*:*:*");

def component: {
  name,
  versionInfo: .version,
  licenseConcluded: .licence,
  externalRefs: [reference("PACKAGE-MANAGER"; "purl"; .purl), (select(.source) | cpe)]
} + (.source | if . then fromFile(.file; .sha256) + {sourceInfo: .how} else {} end) | package;

def relation($from; $type; $to): {
  spdxElementId: $from, relationshipType: $type, relatedSpdxElement: $to
};

. as $facts | {
  spdxVersion: "SPDX-2.3",
  dataLicense: "CC0-1.0",
  SPDXID: "SPDXRef-DOCUMENT",
  name,
  documentNamespace: "https://spdx.org/spdxdocs/\(.name)-\(.products[0].sha256)",
  creationInfo: {created, creators: ["Tool: pkcs11-brivasign-release-\(.version)"]},
  packages: [
    (.products[] | {
      name: .file,
      versionInfo: $facts.version,
      sourceInfo: "git commit \($facts.commit)",
      licenseConcluded: "NOASSERTION",
      licenseDeclared: "NONE",
      licenseComments: "The owner has not chosen a licence yet."
    } + fromFile(.file; .sha256) | package),
    (.parts[], .tools[] | component),
    ([.products[].needs[]] | unique[] | {
      name: .,
      licenseConcluded: "NOASSERTION",
      comment: "The system's, not in the archive."
    } | package)],
  relationships: [.products[] | (.file | id) as $product |
    relation("SPDXRef-DOCUMENT"; "DESCRIBES"; $product),
    relation($product; "STATIC_LINK";
      $facts.parts[] | select(.only == null or (.only | id) == $product).name | id),
    relation($product; "DYNAMIC_LINK"; .needs[] | id),
    relation($facts.tools[].name | id; "BUILD_TOOL_OF"; $product)]
}
