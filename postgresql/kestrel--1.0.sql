\echo Use "CREATE EXTENSION kestrel" to load this file. \quit

-- Databases keep what this file made when a new library comes. So once it was released it is not
-- changed: kestrel--1.0--1.1.sql says what changes, and kestrel.control names the new version.

GRANT USAGE ON SCHEMA @extschema@ TO PUBLIC;

-- Programs by name; each change of one is a version of its own.
CREATE TABLE @extschema@.programs (
    name text NOT NULL,
    version integer NOT NULL CHECK (version > 0),
    result text NOT NULL,
    text text NOT NULL,
    added timestamptz NOT NULL DEFAULT now(),
    PRIMARY KEY (name, version)
);
GRANT SELECT ON @extschema@.programs TO PUBLIC;
SELECT pg_catalog.pg_extension_config_dump('@extschema@.programs', '');

CREATE FUNCTION @extschema@.check(program text, result text) RETURNS void
    LANGUAGE c STRICT VOLATILE PARALLEL RESTRICTED AS 'MODULE_PATHNAME', 'kestrel_check';

CREATE FUNCTION @extschema@.program(name text, version integer DEFAULT NULL) RETURNS text
    LANGUAGE c STABLE PARALLEL SAFE AS 'MODULE_PATHNAME', 'kestrel_program';

CREATE FUNCTION @extschema@.add_program(name text, program text, result text DEFAULT 'numeric')
    RETURNS integer LANGUAGE plpgsql VOLATILE SET search_path = pg_catalog, pg_temp AS $$
DECLARE
    latest integer;
BEGIN
    PERFORM @extschema@.check(program, result);
    LOCK TABLE @extschema@.programs IN SHARE ROW EXCLUSIVE MODE;
    SELECT coalesce(max(p.version), 0) INTO latest
        FROM @extschema@.programs p WHERE p.name = add_program.name;
    INSERT INTO @extschema@.programs (name, version, result, text)
        VALUES (add_program.name, latest + 1, add_program.result, program);
    RETURN latest + 1;
END
$$;

-- A script on a record. Of each function the second one runs in parallel plans, and takes programs
-- only that are proven to carry nothing from record to record.

CREATE FUNCTION @extschema@.eval_numeric(program text, record jsonb) RETURNS numeric
    LANGUAGE c STRICT VOLATILE PARALLEL UNSAFE COST 20
    AS 'MODULE_PATHNAME', 'kestrel_eval_numeric';
CREATE FUNCTION @extschema@.eval_numeric_parallel(program text, record jsonb) RETURNS numeric
    LANGUAGE c STRICT STABLE PARALLEL SAFE COST 20
    AS 'MODULE_PATHNAME', 'kestrel_eval_numeric_parallel';

CREATE FUNCTION @extschema@.eval_text(program text, record jsonb) RETURNS text
    LANGUAGE c STRICT VOLATILE PARALLEL UNSAFE COST 20
    AS 'MODULE_PATHNAME', 'kestrel_eval_text';
CREATE FUNCTION @extschema@.eval_text_parallel(program text, record jsonb) RETURNS text
    LANGUAGE c STRICT STABLE PARALLEL SAFE COST 20
    AS 'MODULE_PATHNAME', 'kestrel_eval_text_parallel';

CREATE FUNCTION @extschema@.eval_bool(program text, record jsonb) RETURNS boolean
    LANGUAGE c STRICT VOLATILE PARALLEL UNSAFE COST 20
    AS 'MODULE_PATHNAME', 'kestrel_eval_bool';
CREATE FUNCTION @extschema@.eval_bool_parallel(program text, record jsonb) RETURNS boolean
    LANGUAGE c STRICT STABLE PARALLEL SAFE COST 20
    AS 'MODULE_PATHNAME', 'kestrel_eval_bool_parallel';

CREATE FUNCTION @extschema@.eval_timestamptz(program text, record jsonb) RETURNS timestamptz
    LANGUAGE c STRICT VOLATILE PARALLEL UNSAFE COST 20
    AS 'MODULE_PATHNAME', 'kestrel_eval_timestamptz';
CREATE FUNCTION @extschema@.eval_timestamptz_parallel(program text, record jsonb) RETURNS timestamptz
    LANGUAGE c STRICT STABLE PARALLEL SAFE COST 20
    AS 'MODULE_PATHNAME', 'kestrel_eval_timestamptz_parallel';

CREATE FUNCTION @extschema@.eval_jsonb(program text, record jsonb) RETURNS jsonb
    LANGUAGE c STRICT VOLATILE PARALLEL UNSAFE COST 20
    AS 'MODULE_PATHNAME', 'kestrel_eval_jsonb';
CREATE FUNCTION @extschema@.eval_jsonb_parallel(program text, record jsonb) RETURNS jsonb
    LANGUAGE c STRICT STABLE PARALLEL SAFE COST 20
    AS 'MODULE_PATHNAME', 'kestrel_eval_jsonb_parallel';

CREATE FUNCTION @extschema@.eval_rows(program text, record jsonb) RETURNS SETOF jsonb
    LANGUAGE c STRICT VOLATILE PARALLEL UNSAFE COST 20 ROWS 2
    AS 'MODULE_PATHNAME', 'kestrel_eval_rows';
CREATE FUNCTION @extschema@.eval_rows_parallel(program text, record jsonb) RETURNS SETOF jsonb
    LANGUAGE c STRICT STABLE PARALLEL SAFE COST 20 ROWS 2
    AS 'MODULE_PATHNAME', 'kestrel_eval_rows_parallel';

CREATE FUNCTION @extschema@.eval_row(program text, record jsonb) RETURNS record
    LANGUAGE c STRICT VOLATILE PARALLEL UNSAFE COST 20
    AS 'MODULE_PATHNAME', 'kestrel_eval_row';
CREATE FUNCTION @extschema@.eval_row_parallel(program text, record jsonb) RETURNS record
    LANGUAGE c STRICT STABLE PARALLEL SAFE COST 20
    AS 'MODULE_PATHNAME', 'kestrel_eval_row_parallel';
