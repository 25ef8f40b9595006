#!/usr/bin/env python3
"""Reads a capture, plots bid and ask of a symbol, and saves all quotes as Parquet where polars or DuckDB is installed.

    plot_capture.py CAPTURE [SYMBOL] [PICTURE.png]     default: the first symbol of the capture, quotes.png

The cells, which begin with # %%, run one after the other in Jupyter, Spyder and Visual Studio Code, too.
"""
# %% Read the columns
from __future__ import annotations

import importlib.util
import sys
from typing import Any

import matplotlib  # type: ignore[import]

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # type: ignore[import]

import md_message

capture = sys.argv[1]
columns = md_message.read_columns(capture, ["SYMBOL", "BID", "ASK", "SEND_TIME"])
frame: Any = columns.to_pandas()
quotes = frame.dropna(subset=["BID", "ASK"])
symbol = sys.argv[2] if len(sys.argv) > 2 else quotes["SYMBOL"].iloc[0]
print(f"{len(frame)} messages, {len(quotes)} quotes, {quotes['SYMBOL'].nunique()} symbols")

# %% Plot bid and ask
one = quotes[quotes["SYMBOL"] == symbol]
figure, axes = plt.subplots(figsize=(10, 4))
axes.step(one["SEND_TIME"], one["BID"], where="post", label="bid")
axes.step(one["SEND_TIME"], one["ASK"], where="post", label="ask")
axes.set_title(symbol)
axes.legend()
picture = sys.argv[3] if len(sys.argv) > 3 else "quotes.png"
figure.savefig(picture)
print(f"{picture}: {len(one)} quotes of {symbol}")

# %% Save Parquet
parquet = picture.rpartition(".")[0] + ".parquet"
if importlib.util.find_spec("polars"):
    polars: Any = importlib.import_module("polars")
    polars.DataFrame(columns).write_parquet(parquet)
    print(parquet)
elif importlib.util.find_spec("duckdb"):
    duckdb: Any = importlib.import_module("duckdb")
    duckdb.sql("FROM columns").write_parquet(parquet)
    print(parquet)
else:
    print("no Parquet: neither polars nor DuckDB is installed")
