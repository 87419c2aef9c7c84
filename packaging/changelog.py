#!/usr/bin/env python3
"""Makes what packages tell of the releases from CHANGELOG.md: debian/changelog, and the releases in the AppStream metadata.

    packaging/changelog.py            writes both
    packaging/changelog.py --check    fails, and says where, if they are not what would be written
    packaging/changelog.py --self-test

The newest release has the version of project() in CMakeLists.txt. Until CHANGELOG.md gives that version a date, it has what is
written under [Unreleased], and the day on which it was begun. To release: in CHANGELOG.md turn "[Unreleased]" into
"[VERSION] - DATE", and run this.
"""

import datetime
import email.utils
import pathlib
import re
import sys
import textwrap
from xml.sax.saxutils import escape

ROOT = pathlib.Path(__file__).resolve().parents[1]
METADATA = pathlib.Path("packaging/linux/org.capso.config.metainfo.xml")
DEBIAN = pathlib.Path("debian/changelog")


class Release:
    def __init__(self, version, date, changes, released):
        self.version = version
        self.date = date
        self.changes = changes
        self.released = released


def plain(text):
    """Markdown's emphasis, code and links as plain text."""
    text = re.sub(r"\[([^\]]+)\]\([^)]*\)", r"\1", text)
    return re.sub(r"[`*]", "", text)


def changes_of(section):
    """The list items of a section, each on one line."""
    items = re.findall(r"^- (.*(?:\n  .*)*)", section, re.MULTILINE)
    return [plain(" ".join(line.strip() for line in item.splitlines())) for item in items]


def releases_of(changelog, version, begun):
    """Newest first. `version` is the one that is being worked on, `begun` the day of its first entry."""
    heading = re.compile(r"^## \[(\d+\.\d+\.\d+)\] - (\d{4}-\d{2}-\d{2})$", re.MULTILINE)
    found = list(heading.finditer(changelog))
    ends = [match.start() for match in found] + [len(changelog)]
    unreleased, ends = changes_of(changelog[:ends[0]]), ends[1:]
    releases = [
        Release(match[1], datetime.date.fromisoformat(match[2]), changes_of(changelog[match.end():end]), True)
        for match, end in zip(found, ends)
    ]
    if version not in [release.version for release in releases]:
        if not unreleased:
            sys.exit(f"CHANGELOG.md says nothing of {version}, neither under it nor under [Unreleased]")
        releases.insert(0, Release(version, begun, unreleased, False))
    if releases[0].version != version:
        sys.exit(f"CMakeLists.txt has version {version}, but the newest in CHANGELOG.md is {releases[0].version}")
    return releases


def debian_changelog(releases, maintainer):
    entries = []
    for release in releases:
        changes = "\n".join(
            textwrap.fill(change, 78, initial_indent="  * ", subsequent_indent="    ", break_long_words=False,
                          break_on_hyphens=False)
            for change in release.changes)
        noon = datetime.datetime.combine(release.date, datetime.time(12), datetime.timezone.utc)
        entries.append(f"capso-config ({release.version}) unstable; urgency=medium\n\n{changes}\n\n"
                       f" -- {maintainer}  {email.utils.format_datetime(noon)}\n")
    return "\n".join(entries)


def appstream_releases(releases):
    lines = ["  <releases>"]
    for release in releases:
        kind = "stable" if release.released else "development"
        lines += [f'    <release version="{release.version}" type="{kind}" date="{release.date}">', "      <description>",
                  "        <ul>"]
        lines += [f"          <li>{escape(change)}</li>" for change in release.changes]
        lines += ["        </ul>", "      </description>", "    </release>"]
    return "\n".join(lines + ["  </releases>"])


def day_of(debian, version):
    """When the entry of this version was begun; today if there is none."""
    entry = re.search(rf"^capso-config \({re.escape(version)}\).*?^ -- .*?>  (.*?)$", debian, re.MULTILINE | re.DOTALL)
    if not entry:
        return datetime.datetime.now(datetime.timezone.utc).date()
    return email.utils.parsedate_to_datetime(entry[1]).date()


def made(root):
    """The text of each file as it should be."""
    version = re.search(r"^project\(CapsoConfig VERSION (\S+)", (root / "CMakeLists.txt").read_text(), re.MULTILINE)[1]
    maintainer = re.search(r"^Maintainer: (.*)$", (root / "debian/control").read_text(), re.MULTILINE)[1]
    debian = (root / DEBIAN).read_text() if (root / DEBIAN).exists() else ""
    releases = releases_of((root / "CHANGELOG.md").read_text(), version, day_of(debian, version))
    metadata = re.sub(r"  <releases>.*</releases>", lambda _: appstream_releases(releases),
                      (root / METADATA).read_text(), flags=re.DOTALL)
    return {DEBIAN: debian_changelog(releases, maintainer), METADATA: metadata}


# ---- the self-test

SAMPLE = """# Changelog

Words about the format.

## [Unreleased]

### Added

- Something that is not out yet.

## [1.2.0] - 2027-03-04

### Added

- A `./command` that does <this> & that, and whose description is so long that it needs a second line
  in [this file](CHANGELOG.md).

### Fixed

- **Two** mends.

## [1.1.0] - 2027-01-02

- The first.
"""

DEBIAN_RELEASED = """capso-config (1.2.0) unstable; urgency=medium

  * A ./command that does <this> & that, and whose description is so long that
    it needs a second line in this file.
  * Two mends.

 -- Some Body <some@example.org>  Thu, 04 Mar 2027 12:00:00 +0000

capso-config (1.1.0) unstable; urgency=medium

  * The first.

 -- Some Body <some@example.org>  Sat, 02 Jan 2027 12:00:00 +0000
"""

APPSTREAM_NEXT = """  <releases>
    <release version="1.3.0" type="development" date="2027-05-06">
      <description>
        <ul>
          <li>Something that is not out yet.</li>
        </ul>
      </description>
    </release>
    <release version="1.2.0" type="stable" date="2027-03-04">
      <description>
        <ul>
          <li>A ./command that does &lt;this&gt; &amp; that, and whose description is so long that it needs a second line \
in this file.</li>
          <li>Two mends.</li>
        </ul>
      </description>
    </release>
    <release version="1.1.0" type="stable" date="2027-01-02">
      <description>
        <ul>
          <li>The first.</li>
        </ul>
      </description>
    </release>
  </releases>"""


def expect(what, found, expected):
    if found != expected:
        sys.exit(f"{what} is\n{found}\nand not\n{expected}")


def self_test():
    day = datetime.date(2027, 5, 6)
    expect("debian/changelog", debian_changelog(releases_of(SAMPLE, "1.2.0", day), "Some Body <some@example.org>"),
           DEBIAN_RELEASED)
    expect("AppStream's releases", appstream_releases(releases_of(SAMPLE, "1.3.0", day)), APPSTREAM_NEXT)
    expect("the day that an entry keeps", day_of(DEBIAN_RELEASED, "1.1.0"), datetime.date(2027, 1, 2))


def main():
    if sys.argv[1:] == ["--self-test"]:
        self_test()
    elif sys.argv[1:] == ["--check"]:
        stale = [str(path) for path, text in made(ROOT).items() if (ROOT / path).read_text() != text]
        if stale:
            sys.exit(f"not what CHANGELOG.md and CMakeLists.txt say; run packaging/changelog.py: {', '.join(stale)}")
    elif not sys.argv[1:]:
        for path, text in made(ROOT).items():
            (ROOT / path).write_text(text)
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main()
