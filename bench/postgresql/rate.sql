-- The same rules in PL/pgSQL and as scripts, over a million records, in a database with the extension:
--     psql -f rate.sql
CREATE EXTENSION IF NOT EXISTS kestrel;
CREATE TEMP TABLE calls AS
    SELECT jsonb_build_object('id', i, 'zone', (ARRAY['DE', 'FR', 'PE', 'US'])[i % 4 + 1],
        'number', '00' || (ARRAY['49', '33', '51', '1', '44', '39', '34', '31', '43', '41'])[i % 10 + 1] || i,
        'seconds', i::bigint * 7919 % 600, 'roaming', i % 7 = 0, 'discount', 0.05) AS r
    FROM generate_series(1, 1000000) i;
ANALYZE calls;

-- A few comparisons and multiplications.
CREATE FUNCTION pg_temp.small(r jsonb) RETURNS numeric LANGUAGE plpgsql STABLE AS $$
DECLARE minutes bigint; price numeric; zone text;
BEGIN
    minutes := ((r->>'seconds')::bigint + 59) / 60;
    zone := r->>'zone';
    IF zone = 'DE' THEN price := 0.12;
    ELSIF zone = 'FR' THEN price := 0.25;
    ELSIF zone = 'US' THEN price := 0.60;
    ELSE price := 1.50;
    END IF;
    IF (r->>'roaming')::boolean THEN price := price * 1.5; END IF;
    IF minutes > 5 THEN
        price := price * 5 + price * (minutes - 5) * (1 - (r->>'discount')::numeric);
    ELSE
        price := price * minutes;
    END IF;
    RETURN price;
END $$;
SELECT kestrel.add_program('small', $$
Long minutes; Decimal price; String zone;
minutes = (edrLong(seconds) + 59) / 60;
zone = edrString(zone);
if (zone == "DE") price = 0.12;
else if (zone == "FR") price = 0.25;
else if (zone == "US") price = 0.60;
else price = 1.50;
if (edrLong(roaming) == 1) price = price * 1.5;
if (minutes > 5)
    price = price * 5.0 + price * longToDecimal(minutes - 5) * (1.0 - edrDecimal(discount));
else price = price * longToDecimal(minutes);
result = price;
$$);

-- The price by the prefix of a number, in steps that get cheaper.
CREATE FUNCTION pg_temp.steps(r jsonb) RETURNS numeric LANGUAGE plpgsql STABLE AS $$
DECLARE number text; left_over bigint; step numeric; price numeric := 0;
BEGIN
    number := r->>'number';
    IF number LIKE '0049%' THEN step := 0.02;
    ELSIF number LIKE '0033%' THEN step := 0.03;
    ELSIF number LIKE '0044%' THEN step := 0.035;
    ELSIF number LIKE '0039%' THEN step := 0.04;
    ELSIF number LIKE '0034%' THEN step := 0.04;
    ELSIF number LIKE '0031%' THEN step := 0.045;
    ELSIF number LIKE '0043%' THEN step := 0.025;
    ELSIF number LIKE '0041%' THEN step := 0.06;
    ELSIF number LIKE '001%' THEN step := 0.05;
    ELSE step := 0.2;
    END IF;
    left_over := (r->>'seconds')::bigint;
    WHILE left_over > 0 LOOP
        price := price + step;
        IF step > 0.01 THEN step := round(step * 0.95, 5); END IF;
        left_over := left_over - 30;
    END LOOP;
    RETURN round(price, 4);
END $$;
SELECT kestrel.add_program('steps', $$
Long left; Decimal step; Decimal price;
regExprSwitch (edrString(number)) {
    case "0049.*": step = 0.02; break;
    case "0033.*": step = 0.03; break;
    case "0044.*": step = 0.035; break;
    case "0039.*": step = 0.04; break;
    case "0034.*": step = 0.04; break;
    case "0031.*": step = 0.045; break;
    case "0043.*": step = 0.025; break;
    case "0041.*": step = 0.06; break;
    case "001.*": step = 0.05; break;
    default: step = 0.2;
}
price = 0.0;
left = edrLong(seconds);
while (left > 0) {
    price = price + step;
    if (step > 0.01) step = round(step * 0.95, 5);
    left = left - 30;
}
result = round(price, 4);
$$);

SET max_parallel_workers_per_gather = 0;
\timing on
SELECT count(r) FROM calls;
SELECT sum(pg_temp.small(r)) FROM calls;
SELECT sum(kestrel.eval_numeric(kestrel.program('small'), r)) FROM calls;
SELECT sum(pg_temp.steps(r)) FROM calls;
SELECT sum(kestrel.eval_numeric(kestrel.program('steps'), r)) FROM calls;
