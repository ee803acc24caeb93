"""What the commands that test panels have in common."""
from common.files import PLANS
from store.handin import add_store_option


def add_report_options(parser, base):
    """--report, in which `base` is the folder unless somebody says otherwise, --operator, --line,
    --store, --plans and --verbose."""
    add = parser.add_argument
    add("--plans", metavar="FOLDER", default=str(PLANS), help="folder of the plans")
    add("--report", metavar="FOLDER", default=base,
        help="folder for the reports, UNIT/TIMESTAMP inside it, and one page with all (default "
        "%(default)s)")
    add("--operator", metavar="NAME", default="", help="who tests, for the reports")
    add("--line", metavar="NAME", default="",
        help="production line, for the reports and the store; else the host")
    add("--verbose", action="store_true", help="show the requests and answers")
    add_store_option(parser)
