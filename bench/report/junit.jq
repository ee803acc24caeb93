# A record as JUnit XML: a suite a level, a case a step, one more for the faults of the panel as a whole.
# No errors: a fault of the bench itself leaves no verdict.
# XML cannot hold every character, whatever way it is written.
def text: tostring | explode | map(if . == 9 or . == 10 or . == 13 or . >= 32 and . < 65534 or . > 65535
    then . else 65533 end) | implode | @html;
def attributes: to_entries | map(" \(.key)=\"\(.value | text)\"") | add;
def seconds: (. | round) / 1000;
def property: "<property" + ({name: .key, value} | attributes) + "/>";
def failure: "<failure" + ({type: "failure", message: .faults[0]} | attributes) + ">"
    + (.faults | join("\n") | text) + "</failure>";
def testcase($level): "<testcase" + ({classname: $level, name, time: (.ms | seconds)} | attributes) + ">"
    + (if .faults == [] then "" else failure end) + "</testcase>";

. as $run | "<?xml version=\"1.0\" encoding=\"UTF-8\"?>", "<testsuites>",
(.levels | to_entries[] | .key as $id | .value
    | (.steps + if .faults == [] then [] else [{name: "the panel as a whole", faults, ms: 0}] end) as $cases
    | "<testsuite" + ({id: $id, package: "bench", name: .level, timestamp: $run.begun[:19], hostname: $run.host,
        tests: ($cases | length), failures: ($cases | map(select(.faults != [])) | length),
        errors: 0,
        time: (($cases | map(.ms) | add // 0) | seconds)} | attributes) + ">",
    "<properties>", ($run.unit | to_entries[] | property), "</properties>",
    (.level as $level | $cases[] | testcase($level)),
    "<system-out/>", "<system-err/>", "</testsuite>"),
"</testsuites>"
