#!/usr/bin/env python3
"""Writes one table, one JSON file and the plots from the results of the benchmarks.

    report.py RESULTS JSON [PLOTS]

RESULTS holds files of Google Benchmark's JSON shape. A benchmark is named TABLE/CASE/WHO, where WHO is "qiven", "floor"
or another way to do the same. The table shows medians: of the counter "survived" or of the manual time if present, else
of the processor time. A name in parentheses is shown for information only. bench/goals.json has the goals.
"""
import collections
import json
import pathlib
import re
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent


def read(results):
    """Returns the medians as {table: {case: {who: value}}}, and the description of the machine."""
    tables = collections.defaultdict(lambda: collections.defaultdict(dict))
    context = {}
    for path in sorted(pathlib.Path(results).glob('*.json')):
        report = json.loads(path.read_text())
        context = context or report['context']
        for run in report['benchmarks']:
            if run.get('aggregate_name') != 'median':
                continue
            name = re.sub(r'/(iterations:\d+|manual_time|real_time)', '', run['run_name'])
            table, case, who = name.split('/', 2)
            manual = 'manual_time' in run['run_name'] or 'real_time' in run['run_name']
            scale = {'ns': 1, 'us': 1e3, 'ms': 1e6, 's': 1e9}[run['time_unit']]
            value = run.get('survived', (run['real_time'] if manual else run['cpu_time']) * scale)
            tables[table][case][who] = value
    return tables, context


def is_compared(who):
    return who not in ('qiven', 'floor') and not who.startswith('(')


def linearity(cases):
    """The part of the growth that a straight line explains (the square of the correlation)."""
    points = [(int(case), who['qiven']) for case, who in cases.items() if 'qiven' in who]
    n = len(points)
    mean_x, mean_y = sum(x for x, _ in points) / n, sum(y for _, y in points) / n
    sxy = sum((x - mean_x) * (y - mean_y) for x, y in points)
    sxx, syy = sum((x - mean_x) ** 2 for x, _ in points), sum((y - mean_y) ** 2 for _, y in points)
    return sxy * sxy / (sxx * syy) if sxx and syy else 0.0


def judge(name, row, goals):
    """Returns the goals of one row, each as (text, value, met)."""
    verdicts = []
    for goal in goals:
        if 'row' not in goal or not re.fullmatch(goal['row'], name):
            continue
        if 'floor_at_most' in goal and 'floor' in row:
            value = row['qiven'] / row['floor']
            verdicts.append((f"<= {goal['floor_at_most']:.2f} x floor", value, value <= goal['floor_at_most']))
        if 'floor_rate_at_least' in goal and 'floor' in row:
            value = row['floor'] / row['qiven']
            verdicts.append((f">= {goal['floor_rate_at_least']:.2f} x rate", value, value >= goal['floor_rate_at_least']))
        if 'survivors_at_least' in goal and 'floor' in row:
            value = row['qiven'] / row['floor']
            verdicts.append((f">= {goal['survivors_at_least']:.2f} x floor", value, value >= goal['survivors_at_least']))
        for who, wanted in goal.get('others_at_least', {}).items():
            if who in row:
                value = row[who] / row['qiven']
                verdicts.append((f'>= {wanted:g} x {who}', value, value >= wanted))
    return verdicts


def order(case):
    return (0, int(case), '') if case.isdigit() else (1, 0, case)


def rows_of(tables, goals):
    rows = []
    for table, cases in tables.items():
        for case in sorted(cases, key=order):
            row = cases[case]
            if 'qiven' not in row:
                continue
            others = {who: value for who, value in row.items() if who not in ('qiven', 'floor')}
            compared = [who for who in others if is_compared(who)]
            best = (max if table == 'burst' else min)(compared, key=others.get) if compared else None
            rows.append({'row': f'{table}/{case}', 'qiven': row['qiven'], 'floor': row.get('floor'),
                         'best_other': best, 'others': others,
                         'goals': [{'goal': text, 'value': value, 'met': met}
                                   for text, value, met in judge(f'{table}/{case}', row, goals)]})
        for goal in goals:
            if goal.get('growth') == table and len(cases) > 2:
                value = linearity(cases)
                rows.append({'row': f'{table}: growth', 'qiven': None, 'floor': None, 'best_other': None, 'others': {},
                             'goals': [{'goal': 'a straight line', 'value': value,
                                        'met': value >= goal['linear_at_least']}]})
    return rows


def amount(value, table):
    if value is None:
        return '-'
    return f'{value:.0f}' if table == 'burst' or value >= 1000 else f'{value:.1f}'


def show(rows):
    line = '{:24} {:>10} {:>10} {:>10} {:>24}  {:17} {:>7}  {}'
    print(line.format('row (ns; burst: datagrams)', 'qiven', 'floor', 'x floor', 'best other', 'goal', 'reached', ''))
    for row in rows:
        table = row['row'].split('/')[0]
        ratio = f"{row['qiven'] / row['floor']:.2f}" if row['floor'] else '-'
        best = row['best_other']
        other = f"{best} {amount(row['others'][best], table)}" if best else '-'
        head = [row['row'], amount(row['qiven'], table), amount(row['floor'], table), ratio, other]
        for goal in row['goals'] or [None]:
            tail = [goal['goal'], f"{goal['value']:.2f}", 'met' if goal['met'] else 'NOT MET'] if goal else ['', '', '']
            print(line.format(*head, *tail).rstrip())
            head = [''] * 5


def gnuplot(path, commands, data):
    text = f"set terminal svg size 900,420 background 'white'\nset output '{path}'\nset grid y\n"
    text += ''.join(f'${name} << EOD\n{block}EOD\n' for name, block in data.items()) + commands
    subprocess.run(['gnuplot', '-'], input=text, text=True, check=True)


def plot(tables, plots):
    plots = pathlib.Path(plots)
    plots.mkdir(parents=True, exist_ok=True)
    for table, cases in tables.items():
        names = sorted(cases, key=order)
        who = sorted({who for case in names for who in cases[case]}, key=lambda w: (w != 'qiven', w != 'floor', w))
        block = ''.join(f'"{case}" ' + ' '.join(str(cases[case].get(w, 'NaN')) for w in who) + '\n' for case in names)
        unit = 'datagrams' if table == 'burst' else 'ns'
        if len(names) > 3 and all(case.isdigit() for case in names):
            lines = ', '.join(f"$data using 1:{i + 2} with linespoints title '{w}'" for i, w in enumerate(who))
            what = 'cards' if table == 'enumeration' else 'bytes'
            commands = f"set key left top\nset xlabel '{what}'\nset ylabel 'ns'\nset title '{table}'\nplot {lines}\n"
            block = block.replace('"', '')
        else:
            bars = ', '.join(f"$data using {i + 2}:xtic(1) title '{w}'" for i, w in enumerate(who))
            scale = '' if table == 'burst' else 'set logscale y\n'
            commands = (f"set style data histograms\nset style fill solid\n{scale}set ylabel '{unit}'\n"
                        f"set title '{table}'\nset key outside\nplot {bars}\n")
        gnuplot(plots / f'{table}.svg', commands, {'data': block})


def main(results, output, plots=None):
    tables, context = read(results)
    goals = json.loads((HERE / 'goals.json').read_text())
    rows = rows_of(tables, goals)
    pathlib.Path(output).write_text(json.dumps({'context': context, 'rows': rows}, indent=1) + '\n')
    if plots:
        plot(tables, plots)
    show(rows)


if __name__ == '__main__':
    main(*sys.argv[1:])
