"""Documents for the tests in a browser: plain ones, and hostile ones."""

SECTIONS = ("admin", "devel", "libs", "net", "text")
THINGS = ("archive", "calendar", "compiler", "database", "editor", "keyboard", "library", "network")


def record(fields):
    return "".join(f"{name}: {value}\n" for name, value in fields) + "\n"


def packages(count):
    """Each third is about a server; name, size and section differ from one to the next."""
    documents = []
    for number in range(count):
        thing, section = THINGS[number % len(THINGS)], SECTIONS[number % len(SECTIONS)]
        kind = "server" if number % 3 == 0 else "tool"
        documents.append(
            record(
                (
                    ("Package", f"{thing}-{kind}{number}"),
                    ("Section", section),
                    ("Version", f"{1 + number % 4}.{number}-1"),
                    ("Installed-Size", str(1 + number * 7919 % 1000)),
                    ("Depends", "libc6 (>= 2.36), libstdc++6"),
                    (
                        "Description",
                        f"{kind} for the {thing} of a small site\n"
                        f" It keeps each {thing} in order, tells its {section} users what is new and\n"
                        " finds again what was there before.  Made for machines with little memory.",
                    ),
                    ("Homepage", "https://packages.example/"),
                )
            )
        )
    return documents


# Each of them would run, ask another host or break the page, were it not shown as text.
ATTACKS = (
    "<script>document.title = 'taken'</script>",
    "<img src=x onerror=\"document.title = 'taken'\">",
    "<img src=//elsewhere.example/pixel.png>",
    "\"><svg onload=\"document.title = 'taken'\">",
    "' onmouseover='document.title = 1' x='",
    "<a href=\"javascript:document.title = 'taken'\">press</a>",
    "</title></head></li></ol></main><h1>Another page</h1>",
    "<link rel=stylesheet href=//elsewhere.example/style.css>",
    "<iframe src=//elsewhere.example/></iframe>",
    "<meta http-equiv=refresh content=0;url=//elsewhere.example/>",
    "<base href=//elsewhere.example/>",
    "<form action=//elsewhere.example/><input name=q>",
    "<!-- <!--korvo:status--> <plaintext>",
    "&lt;script&gt; &#60;script&#62; &amp;lt;",
    "<style>@import '//elsewhere.example/s.css';</style>",
)


def hostile():
    return [
        record(
            (
                ("Package", f"hostile {attack}"),
                ("Section", attack),
                ("Version", attack),
                ("Installed-Size", "1"),
                ("Depends", attack),
                ("Description", f"hostile {attack} to the end"),
                ("Homepage", attack),
            )
        )
        for attack in ATTACKS
    ]
