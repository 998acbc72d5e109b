1	1	Color	Natural,Charcoal,Indigo,Rust
2	3	Size	Small,Medium,Large
3	5	Gift message	
4	4	Extras	Gift wrap,Spare parts
5	6	Finish	Brass,Matte black,Copper
6	2	Engraving	
