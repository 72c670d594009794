import { DateTime, Duration, Interval, Settings } from 'luxon';

import { done, equal } from '../../Globals/bundles/check.js';

const time = DateTime.fromISO('2026-03-29T01:30:00', { zone: 'Europe/Berlin' });
// The clocks go forward that night.
equal([time.plus({ hours: 1 }).toISO(), time.plus({ days: 1 }).offset, time.offset],
    ['2026-03-29T03:30:00.000+02:00', 120, 60]);
equal(time.setLocale('de').toFormat('cccc, d. LLLL yyyy'), 'Sonntag, 29. März 2026');
equal(time.toUTC().toISO(), '2026-03-29T00:30:00.000Z');
equal([time.weekNumber, time.isInDST, time.daysInMonth], [13, false, 31]);
equal(DateTime.fromFormat('24/12/2026 18:05', 'dd/MM/yyyy HH:mm', { zone: 'utc' }).toMillis(), Date.UTC(2026, 11, 24, 18, 5));
equal(DateTime.fromISO('2026-13-01').invalidReason, 'unit out of range');
equal(Duration.fromObject({ hours: 25, minutes: 90 }).normalize().toISO(), 'PT26H30M');
equal(Interval.fromDateTimes(time, time.plus({ months: 2 })).length('days') > 60, true);
Settings.now = () => Date.UTC(2026, 0, 1);
equal(DateTime.utc().minus({ days: 2 }).toRelative({ locale: 'en' }), '2 days ago');
done();
