-- What the bench says to a store, for SQLite and PostgreSQL alike. A line "-- @NAME" begins a text, "${NAME}" puts
-- another one in, ":NAME" is a parameter: of an insertion the field of the record, with list texts a line each.
-- "began" is UTC and sorts, "day" and "clock" are the line's own.

-- @schema
CREATE TABLE runs (run TEXT PRIMARY KEY, unit TEXT NOT NULL, machine TEXT, semi TEXT, model TEXT, version TEXT,
    crc TEXT, line TEXT NOT NULL, operator TEXT, subject TEXT, began TEXT NOT NULL, day TEXT NOT NULL,
    clock TEXT NOT NULL, seconds INTEGER, passed INTEGER NOT NULL, report TEXT);
CREATE TABLE levels (run TEXT REFERENCES runs, nr INTEGER, level TEXT NOT NULL, plan TEXT, plan_hash TEXT,
    passed INTEGER NOT NULL, faults TEXT, PRIMARY KEY (run, nr));
CREATE TABLE steps (run TEXT REFERENCES runs, level_nr INTEGER, nr INTEGER, level TEXT NOT NULL, items TEXT,
    name TEXT NOT NULL, code TEXT, reply TEXT, meaning TEXT, ms DOUBLE PRECISION, prescribed_ms DOUBLE PRECISION,
    tries INTEGER, passed INTEGER NOT NULL, faults TEXT, PRIMARY KEY (run, level_nr, nr));
CREATE TABLE measured (run TEXT REFERENCES runs, level_nr INTEGER, nr INTEGER, level TEXT NOT NULL,
    name TEXT NOT NULL, value DOUBLE PRECISION, measure TEXT, lower_limit DOUBLE PRECISION,
    upper_limit DOUBLE PRECISION);
CREATE INDEX measured_run ON measured (run);
CREATE INDEX runs_unit ON runs (unit);
CREATE INDEX steps_failed ON steps (run) WHERE passed = 0

-- @add run
INSERT INTO runs VALUES (:run, :name, :machineId, :semiId, :model, :version, :crc, :line, :operator, :subject,
    :began, :day, :begun, :seconds, :passed, :folder) ON CONFLICT (run) DO NOTHING
-- @add level
INSERT INTO levels VALUES (:run, :levelNr, :level, :plan, :planHash, :passed, :faults)
-- @add step
INSERT INTO steps VALUES (:run, :levelNr, :nr, :level, :itemNames, :name, :code, :reply, :meaning, :ms,
    :prescribedMs, :tries, :passed, :faults)
-- @add value
INSERT INTO measured VALUES (:run, :levelNr, :nr, :level, :name, :value, :unit, :min, :max)

-- @tests
SELECT r.run, l.nr, r.clock, l.passed, r.unit, l.level, r.line, r.operator, r.report, r.semi, r.model, r.version,
    l.faults FROM runs r JOIN levels l ON l.run = r.run
-- @latest
${tests} WHERE r.day BETWEEN :since AND :until ORDER BY r.began DESC, l.nr DESC LIMIT :count
-- @history
WITH found AS (SELECT run, machine, semi FROM runs
    WHERE lower(unit) LIKE :id OR lower(machine) LIKE :id OR lower(semi) LIKE :id)
${tests} WHERE r.run IN (SELECT run FROM found) OR r.machine <> '' AND r.machine IN (SELECT machine FROM found)
    OR r.semi <> '' AND r.semi IN (SELECT semi FROM found) ORDER BY r.began, l.nr
-- @failed
SELECT name, faults FROM steps WHERE run = :run AND level_nr = :nr AND passed = 0 ORDER BY nr
-- @measured
SELECT name, value, measure, lower_limit, upper_limit FROM measured WHERE run = :run AND level_nr = :nr
    ORDER BY nr, name

-- @csv_tests
SELECT r.clock, r.seconds, r.line, r.operator, r.subject, r.unit, r.machine, r.semi, r.model, r.version, r.crc,
    t.nr, t.level, t.plan, t.plan_hash, t.passed, t.faults, r.report, r.run FROM levels t ${csv}
-- @csv_steps
SELECT r.clock, r.line, r.unit, t.level, t.nr, t.items, t.name, t.code, t.reply, t.meaning, t.ms, t.prescribed_ms,
    t.tries, t.passed, t.faults, r.run FROM steps t ${csv}
-- @csv_values
SELECT r.clock, r.line, r.unit, t.level, t.nr, t.name, t.value, t.measure, t.lower_limit, t.upper_limit, r.run
    FROM measured t ${csv}
-- @csv
JOIN runs r ON r.run = t.run WHERE r.day BETWEEN :since AND :until
    AND (lower(r.machine) LIKE :id OR lower(r.semi) LIKE :id OR lower(r.unit) LIKE :id)
    ORDER BY r.began, r.run, t.nr

-- @counted
-- The tests of a unit at a level count from its very first on, in the period or not.
WITH tests AS (SELECT r.unit, r.day, r.line, r.clock, r.began, l.level, l.passed,
    ROW_NUMBER() OVER (PARTITION BY r.unit, l.level ORDER BY r.began, r.run, l.nr) AS nth,
    ROW_NUMBER() OVER (PARTITION BY r.unit, l.level ORDER BY r.began DESC, r.run DESC, l.nr DESC) AS back
    FROM runs r JOIN levels l ON l.run = r.run)
-- @joined
t JOIN runs r ON r.run = t.run WHERE r.day BETWEEN :since AND :until
-- @yield_units
SELECT COUNT(DISTINCT unit), COUNT(*) FROM runs WHERE day BETWEEN :since AND :until
-- @yield_first
${counted} SELECT day, line, level, COUNT(*), SUM(passed) FROM tests
    WHERE nth = 1 AND day BETWEEN :since AND :until GROUP BY day, line, level ORDER BY day, line, level
-- @yield_failures
SELECT t.level, t.name, t.items, t.faults, COUNT(*) FROM steps ${joined} AND t.passed = 0
    GROUP BY t.level, t.name, t.items, t.faults ORDER BY 5 DESC
-- @yield_whole
SELECT t.level, t.faults, COUNT(*) FROM levels ${joined} AND t.faults <> '' GROUP BY t.level, t.faults ORDER BY 3 DESC
-- @yield_values
SELECT t.level, t.name, t.measure, t.lower_limit, t.upper_limit, t.value, COUNT(*) FROM measured ${joined}
    GROUP BY t.level, t.name, t.measure, t.lower_limit, t.upper_limit, t.value ORDER BY t.level, t.name, t.value
-- @yield_times
SELECT t.level, t.name, t.code, t.prescribed_ms, ROUND(t.ms / 5) * 5, COUNT(*) FROM steps ${joined}
    GROUP BY t.level, t.name, t.code, t.prescribed_ms, ROUND(t.ms / 5) * 5 ORDER BY t.level, t.code, t.name, 5
-- @yield_retests
${counted} SELECT level, nth, COUNT(*), SUM(passed) FROM tests WHERE back = 1 AND day BETWEEN :since AND :until
    GROUP BY level, nth ORDER BY level, nth
-- @yield_longest
${counted} SELECT unit, level, nth, passed, clock, line FROM tests
    WHERE back = 1 AND nth > 1 AND day BETWEEN :since AND :until ORDER BY passed, nth DESC, began DESC LIMIT 25
