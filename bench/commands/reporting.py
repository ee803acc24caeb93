"""What the commands that test panels have in common."""
from common.commandline import file_name
from common.files import PLANS
from store.handin import add_store_option


def add_report_options(parser, base):
    """--report, in which `base` is the folder unless somebody says otherwise, --operator, --line,
    --store, --plans and --verbose."""
    add = parser.add_argument
    add("--plans", metavar="FOLDER", type=file_name, default=str(PLANS),
        help="Folder of the plans (default: the bench's own).")
    add("--report", metavar="FOLDER", type=file_name, default=base,
        help="Folder for the reports, UNIT/TIMESTAMP inside it (default: %(default)s).")
    add("--operator", metavar="NAME", default="", help="Who tests, for the reports.")
    add("--line", metavar="NAME", default="",
        help="Production line, for the reports and the store (default: the host there).")
    add("--verbose", action="store_true", help="Show the requests and answers.")
    add_store_option(parser)
